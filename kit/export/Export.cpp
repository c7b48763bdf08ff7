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
    return ExportJob(format, url, options).Run(volume.GetData().GetSeriesVolume());
}

}  // namespace korvane
