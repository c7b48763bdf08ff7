// What every operation of math/ throws, by value.
#pragma once

#include "../base/Export.h"

/// Base class of the math exceptions. Thrown as such only by `FMatrix::hgr`.
///
/// An exception carries no text. The texts are composed for a debugger or a memory dump to read, per kind and thread: a
/// prefix ("Errore di dimensioni - ", "Errore di memoria - ", "Divisione per zero - ") and the names of operations that
/// threw, in order. The buffers are bounded and never reset. The first thread that throws has those in the
/// module's data; threads that throw while it lives have theirs on the heap, until they end.
class KORVANE_API Exception {
public:
    Exception();
    /// The text is ignored.
    Exception(const char* text);
    Exception(const Exception& other);
    Exception& operator=(const Exception& other);
    virtual ~Exception();
};

/// Dimensions that do not match.
class KORVANE_API DimException : public Exception {
public:
    DimException();
    /// Appends the name of the operation that failed to the message buffer of this kind.
    DimException(const char* operation);
    DimException(const DimException& other);
    DimException& operator=(const DimException& other);
    ~DimException() override;
};

/// Memory that cannot be had.
class KORVANE_API MemException : public Exception {
public:
    MemException();
    /// Appends the name of the operation that failed to the message buffer of this kind.
    MemException(const char* operation);
    MemException(const MemException& other);
    MemException& operator=(const MemException& other);
    ~MemException() override;
};

/// Division by zero, or by a value that is taken for zero.
class KORVANE_API ZeroException : public Exception {
public:
    ZeroException();
    /// Appends the name of the operation that failed to the message buffer of this kind.
    ZeroException(const char* operation);
    ZeroException(const ZeroException& other);
    ZeroException& operator=(const ZeroException& other);
    ~ZeroException() override;
};
