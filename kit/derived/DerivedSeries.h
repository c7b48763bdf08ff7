// The images of a derived series, made one by one.
#pragma once

#include "../dataset/DataSet.h"
#include "../study/Padding.h"
#include "Derive.h"
#include "SourceImages.h"
#include "StoredForm.h"

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace korvane {

/// All planes of a series, time after time, and what is said of them.
struct DerivedPlanes {
    VoxelType type = VoxelType::Int16;
    std::size_t columns = 0;
    std::size_t rows = 0;
    std::size_t times = 1;
    std::array<double, 6> orientation{};
    std::array<double, 2> spacing{};  ///< between columns, between rows
    bool isSized = true;              ///< else spacing is a guess
    double thickness = 0;
    bool isPlaced = true;                     ///< else orientation and positions are a guess
    std::vector<Volume::Vector> positions{};  ///< of the planes of each time
    std::vector<Rescale> rescales{};          ///< of each plane; one for all
    std::string unit{};
    std::optional<Padding> padding{};  ///< among voxels that are stored as they are
    bool isInverted = false;           ///< low values are bright
    bool isAsRead = false;             ///< values are those of the source, not computed ones
    StoredForm::PlaneOf planeOf;       ///< the voxels of a plane, counted through all times

    std::size_t Count() const { return positions.size() * times; }
};

class DerivedSeries {
public:
    /// `isExact`: every type as it is, for files that stay with us. Throws `Error`.
    DerivedSeries(DerivedPlanes planes, const DeriveOptions& options, bool isExact = false);

    const std::string& GetUid() const { return m_Uid; }
    const std::string& GetSopClass() const { return m_Class; }
    std::size_t Count() const { return m_Planes.Count(); }
    /// The most that rounding changes a real value.
    double GetError() const;
    std::size_t CountReplaced() const { return m_Form->CountReplaced(); }
    /// What the files hold otherwise than the voxels did.
    std::vector<Finding> ListFindings() const;

    /// Counted through all times.
    DataSet MakeImage(std::size_t plane);

private:
    const Rescale& RescaleOf(std::size_t plane) const;
    std::optional<std::size_t> SourceOf(std::size_t plane) const;
    bool KeepsWindow() const;
    bool IsIn(const char* modality, std::initializer_list<const char*> classes) const;
    std::string ChooseClass() const;
    DataSet MakeTemplate(std::optional<std::size_t> image) const;
    void PutSeries(DataSet& dataSet) const;
    void PutClass(DataSet& dataSet) const;
    void PutPlace(DataSet& dataSet, std::size_t plane) const;
    void PutValues(DataSet& dataSet, std::size_t plane);
    bool KeepsPadding() const;
    void PutPadding(DataSet& dataSet) const;

    DerivedPlanes m_Planes;
    DeriveOptions m_Options;
    bool m_bExact;
    std::optional<SourceImages> m_Source;
    std::string m_Uid;
    std::string m_Study;  // of a series without a source
    std::string m_FrameOfReference;
    std::string m_Date;
    std::string m_Time;
    std::string m_Class;
    std::optional<StoredForm> m_Form;
    std::optional<DataSet> m_Common;  // what images without a place in the source have in common
};

}  // namespace korvane
