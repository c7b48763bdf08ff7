#include "DerivedImages.h"

#include "export/CFileWriter.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace korvane {

void WriteImages(DerivedSeries& series, CFileWriter& writer, const std::string& prefix, const Watch& watch,
                 const char* label) {
    const std::size_t digits = std::max<std::size_t>(std::to_string(series.Count()).size(), 4);
    TaskProgress progress(watch, label, static_cast<std::int64_t>(series.Count()));
    for (std::size_t plane = 0; plane < series.Count(); ++plane) {
        std::string number = std::to_string(plane + 1);
        number.insert(0, digits - number.size(), '0');
        std::ostringstream stream;
        series.MakeImage(plane).Save(stream);
        std::string bytes = std::move(stream).str();
        if (!writer.Open((prefix + number + ".dcm").c_str(), "wb")) return;
        const auto count = static_cast<unsigned>(bytes.size());
        const bool written = writer.Write(bytes.data(), 1, count) == count;
        writer.Close();  // its files know how that went
        if (!written) return;
        progress.Step();
    }
}

}  // namespace korvane
