#include "ResliceBench.h"

#if defined(BENCH_VTK)

#include <vtkImageData.h>
#include <vtkImageReslice.h>
#include <vtkMultiThreader.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkShortArray.h>

struct ResliceBench::Pipeline {
    vtkNew<vtkShortArray> voxels;
    vtkNew<vtkImageData> image;
    vtkNew<vtkImageReslice> reslice;
};

bool ResliceBench::IsThere() {
    return true;
}

ResliceBench::ResliceBench(CVolume& volume) : m_Pipeline(std::make_unique<Pipeline>()) {
    int dim[4];
    float space[4];
    volume.GetDimensions(dim);
    volume.GetSpacing(space);
    const vtkIdType count = static_cast<vtkIdType>(dim[0]) * dim[1] * dim[2];
    m_Pipeline->voxels->SetArray(static_cast<short*>(volume.GetVolumePt()), count, 1);
    m_Pipeline->image->SetDimensions(dim[0], dim[1], dim[2]);
    m_Pipeline->image->SetSpacing(space[0], space[1], space[2]);
    m_Pipeline->image->GetPointData()->SetScalars(m_Pipeline->voxels);
    vtkImageReslice& reslice = *m_Pipeline->reslice;
    vtkMultiThreader::SetGlobalMaximumNumberOfThreads(1);
    reslice.SetEnableSMP(false);
    reslice.SetNumberOfThreads(1);
    reslice.SetInputData(m_Pipeline->image);
    reslice.SetOutputDimensionality(2);
    reslice.SetBorder(false);
    reslice.SetBackgroundLevel(-4000);
}

ResliceBench::~ResliceBench() = default;

const std::int16_t* ResliceBench::Run(const DcmObliqueSlice& slice, bool linear) {
    vtkImageReslice& reslice = *m_Pipeline->reslice;
    const auto& row = slice.GetRow();
    const auto& column = slice.GetColumn();
    const auto normal = slice.GetNormal();
    const auto corner = slice.PixelToVol(0, 0);
    reslice.SetResliceAxesDirectionCosines(row[0], row[1], row[2], column[0], column[1], column[2], normal[0],
                                           normal[1], normal[2]);
    reslice.SetResliceAxesOrigin(corner[0], corner[1], corner[2]);
    reslice.SetOutputOrigin(0, 0, 0);
    reslice.SetOutputSpacing(slice.GetPixelSize()[0], slice.GetPixelSize()[1], 1);
    reslice.SetOutputExtent(0, slice.GetWidth() - 1, 0, slice.GetHeight() - 1, 0, 0);
    reslice.SetInterpolationMode(linear ? VTK_RESLICE_LINEAR : VTK_RESLICE_NEAREST);
    reslice.Modified();
    reslice.Update();
    return static_cast<const std::int16_t*>(reslice.GetOutput()->GetScalarPointer());
}

#else

struct ResliceBench::Pipeline {};

bool ResliceBench::IsThere() {
    return false;
}

ResliceBench::ResliceBench(CVolume& /*volume*/) {}
ResliceBench::~ResliceBench() = default;

const std::int16_t* ResliceBench::Run(const DcmObliqueSlice& /*slice*/, bool /*linear*/) {
    return nullptr;
}

#endif
