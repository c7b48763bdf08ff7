// Directory records of one directory entity, in the order in which they were made.
#pragma once

#include "../base/Export.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class CDRRecord;

/// The list owns its records. Looking one up by its key takes the same time whatever the length of the list.
class KORVANE_API CDRRecordList {
public:
    CDRRecordList();
    ~CDRRecordList();
    CDRRecordList(const CDRRecordList&) = delete;
    CDRRecordList& operator=(const CDRRecordList&) = delete;

    /// The record's key (`CDRRecord::GetKey`) must not change from then on. Throws `std::bad_alloc`; the record is then
    /// still the caller's.
    void Append(CDRRecord* record);

    /// The first record with that key; null without one.
    CDRRecord* Find(std::string_view key) const;

    std::size_t GetSize() const;
    /// The record stays the list's. `index` counts from 0 and is not checked.
    CDRRecord* GetAt(std::size_t index) const;

    /// Destroys the last record, or all, each with its subtree. `RemoveLast` of an empty list is not allowed.
    void RemoveLast();
    void Clear();

private:
    std::vector<CDRRecord*> m_Records;
    std::unordered_map<std::string_view, CDRRecord*> m_ByKey;  // the texts are the records' own
};
