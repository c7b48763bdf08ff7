#include "Export.h"

#include "../study/VolumeData.h"
#include "ExportJob.h"

namespace korvane {

ExportReport Export(const Series& series, const std::string& format, const std::string& url,
                    const ExportOptions& options) {
    return ExportJob(format, url, options).Run(series);
}

ExportReport Export(const SeriesChoice& choice, const std::string& format, const std::string& url,
                    const ExportOptions& options) {
    return ExportJob(format, url, options).Run(choice);
}

ExportReport Export(const Volume& volume, const std::string& format, const std::string& url,
                    const ExportOptions& options) {
    // Read anew: an export loads the parts that it writes, and spans into the caller's volume must stay valid.
    ExportOptions own = options;
    own.volume = volume.GetData().GetSeriesVolume().GetVolumeNumber();
    return ExportJob(format, url, own).Run(volume.GetSeries());
}

}  // namespace korvane
