// Vectors and matrices as text.
#include "Exception.h"
#include "FMatrix.h"
#include "FVector.h"

#include <algorithm>
#include <cstdint>
#include <istream>
#include <locale>
#include <new>
#include <ostream>
#include <vector>

namespace {

// Another view of a stream: the same buffer and format, but numbers as in the "C" locale. What goes wrong with it is
// handed back by `finish`, which throws where the stream was asked to.
template <typename Stream>
class ClassicView {
public:
    explicit ClassicView(Stream& stream) : m_Stream(stream), m_View(nullptr) {
        m_View.copyfmt(stream);
        m_View.exceptions(std::ios_base::goodbit);
        m_View.imbue(std::locale::classic());  // while there is no buffer, which would take the locale over too
        m_View.rdbuf(stream.rdbuf());
        m_View.setstate(stream.rdstate());
    }

    Stream& operator*() { return m_View; }

    Stream& finish() {
        m_Stream.width(m_View.width());
        m_Stream.setstate(m_View.rdstate());
        return m_Stream;
    }

private:
    Stream& m_Stream;
    Stream m_View;
};

void WriteElements(std::ostream& out, const float* elements, int n) {
    for (int i = 0; i < n; ++i) {
        if (i > 0) out << ' ';
        out << elements[i];
    }
}

bool ReadDimension(std::istream& in, int& dimension) {
    if (in >> dimension && dimension < 0) in.setstate(std::ios_base::failbit);
    return !in.fail();
}

// The storage doubles as elements arrive: the text's claim alone costs nothing.
std::vector<float> ReadElements(std::istream& in, std::uint64_t count, const char* operation) try {
    std::vector<float> elements;
    elements.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(count, 1024)));
    float element = 0.0F;
    while (elements.size() < count && in >> element) elements.push_back(element);
    return elements;
} catch (const std::bad_alloc&) {
    throw MemException(operation);
}

void SkipComments(std::istream& in) {
    while ((in >> std::ws).peek() == '#') in.ignore(1024, '\n');
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const FVector& v) {
    ClassicView view(out);
    *view << v.dim() << ' ';
    WriteElements(*view, v.GetPointer(), v.dim());
    return view.finish();
}

std::istream& operator>>(std::istream& in, FVector& v) {
    ClassicView view(in);
    int dimension = 0;
    if (ReadDimension(*view, dimension)) {
        const std::vector<float> elements = ReadElements(*view, static_cast<std::uint64_t>(dimension), "FVector::init");
        if (!(*view).fail()) v.assign(elements.data(), dimension);
    }
    return view.finish();
}

std::istream& FVector::load(std::istream& in) {
    SkipComments(in);
    return in >> *this;
}

std::ostream& operator<<(std::ostream& out, const FMatrix& m) {
    ClassicView view(out);
    for (int i = 0; i < m.nrows(); ++i) {
        if (m.IsMatrixCreated()) WriteElements(*view, m[i], m.ncols());
        *view << std::endl;
    }
    return view.finish();
}

std::istream& operator>>(std::istream& in, FMatrix& m) {
    ClassicView view(in);
    int rows = 0;
    int cols = 0;
    if (ReadDimension(*view, rows) && ReadDimension(*view, cols)) {
        const std::uint64_t count = static_cast<std::uint64_t>(rows) * static_cast<std::uint64_t>(cols);
        const std::vector<float> elements = ReadElements(*view, count, "FMatrix::init");
        if (!(*view).fail()) {
            m.size(rows, cols);
            if (m.IsMatrixCreated()) std::copy(elements.begin(), elements.end(), m[0]);
        }
    }
    return view.finish();
}

std::istream& FMatrix::load(std::istream& in) {
    SkipComments(in);
    return in >> *this;
}
