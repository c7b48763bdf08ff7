// usage: move_a_plane FOLDER FILE.png    a slab of 10 mm, moved layer by layer as by a mouse wheel; the last picture is kept
#include <Korvane/Kit.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    try {
        korvane::Slicer slicer(korvane::Load(korvane::Find({argv[1]}).Only()));
        korvane::SliceOptions options;
        options.view.reset();
        options.plane.normal = {0, -1, 1};
        options.frame = {{512, 512}};
        options.slab = 10;
        options.slabMode = korvane::SlabMode::Maximum;
        korvane::SlicePicture last = slicer.Draw(options);
        for (int turn = 0; turn < 20; ++turn) {
            options.shift += slicer.GetFacts().slabStep;
            last = slicer.Draw(options);
        }
        const korvane::SlicerFacts facts = slicer.GetFacts();
        std::cout << facts.rowsKept << " rows of layers were there, " << facts.rowsSampled << " were sampled\n";
        korvane::SavePicture(last.picture, argv[2], last.report.pixelSize);
    } catch (const korvane::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
