// usage: bench_itk load FOLDER           the slices of the one series there into a volume
//        bench_itk export FOLDER FILE    and written as FILE (NIfTI)
//
// What a user of ITK writes, for bench/table.py.
#include <cstdio>
#include <itkGDCMImageIO.h>
#include <itkGDCMSeriesFileNames.h>
#include <itkImage.h>
#include <itkImageFileWriter.h>
#include <itkImageSeriesReader.h>
#include <itkNiftiImageIO.h>
#include <string>

int main(int argc, char** argv) {
    using Image = itk::Image<short, 3>;
    if (argc < 3) return 1;
    try {
        const auto names = itk::GDCMSeriesFileNames::New();
        names->SetDirectory(argv[2]);
        const auto reader = itk::ImageSeriesReader<Image>::New();
        reader->SetImageIO(itk::GDCMImageIO::New());
        reader->SetFileNames(names->GetInputFileNames());
        reader->Update();
        if (argc < 4) return 0;
        const auto writer = itk::ImageFileWriter<Image>::New();
        writer->SetImageIO(itk::NiftiImageIO::New());
        writer->SetFileName(argv[3]);
        writer->SetInput(reader->GetOutput());
        writer->Update();
        return 0;
    } catch (const itk::ExceptionObject& failure) {
        std::fprintf(stderr, "bench_itk: %s\n", failure.GetDescription());
        return 1;
    }
}
