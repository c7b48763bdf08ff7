#include "CDRRecordList.h"

#include "CDRRecord.h"

CDRRecordList::CDRRecordList() = default;

CDRRecordList::~CDRRecordList() {
    Clear();
}

void CDRRecordList::Append(CDRRecord* record) {
    m_Records.reserve(m_Records.size() + 1 > m_Records.capacity() ? 2 * m_Records.size() + 4 : 0);
    m_ByKey.try_emplace(record->GetKey(), record);
    m_Records.push_back(record);
}

CDRRecord* CDRRecordList::Find(std::string_view key) const {
    const auto found = m_ByKey.find(key);
    return found != m_ByKey.end() ? found->second : nullptr;
}

std::size_t CDRRecordList::GetSize() const {
    return m_Records.size();
}

CDRRecord* CDRRecordList::GetAt(std::size_t index) const {
    return m_Records[index];
}

void CDRRecordList::RemoveLast() {
    CDRRecord* const last = m_Records.back();
    const auto found = m_ByKey.find(last->GetKey());
    if (found->second == last) m_ByKey.erase(found);  // else a record before it has the same key
    m_Records.pop_back();
    delete last;
}

void CDRRecordList::Clear() {
    m_ByKey.clear();
    for (const CDRRecord* const record : m_Records) delete record;
    m_Records.clear();
}
