// usage: oblique_picture FOLDER FILE.png    a plane through the middle of the volume, between axial and coronal
#include <Korvane/Kit.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    try {
        const korvane::Volume volume = korvane::Load(korvane::Find({argv[1]}).Only());
        korvane::SliceOptions options;
        options.view.reset();               // a plane of its own in place of a view
        options.plane.normal = {0, -1, 1};  // patient axes: x to the left, y to the back, z to the head
        options.annotate = true;
        const korvane::SlicePicture slice = korvane::Slice(volume, options);
        korvane::SavePicture(slice.picture, argv[2], slice.report.pixelSize);
        std::cout << slice.report.width << " x " << slice.report.height << " pixels, " << slice.report.values << '\n';
    } catch (const korvane::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
