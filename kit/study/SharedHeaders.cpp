#include "SharedHeaders.h"

#include <algorithm>

namespace korvane {

void SharedHeaders::Share(ImageHeader& header) {
    const auto met = std::find_if(m_Met.begin(), m_Met.end(), [&](const Met& other) {
        return other.common != nullptr && *other.common == *header.common;
    });
    if (met == m_Met.end()) {
        m_Met[m_nNext] = {header.common, header.places};
        m_nNext = (m_nNext + 1) % kMet;
        return;
    }
    header.common = met->common;
    if (!header.places.ShareWith(met->places)) met->places = header.places;
}

}  // namespace korvane
