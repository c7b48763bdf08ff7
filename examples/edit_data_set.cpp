// usage: edit_data_set IN OUT    the same data with another series description, and without the patient's address
#include <Korvane/Kit.h>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    try {
        korvane::DataSet set = korvane::DataSet::Read(argv[1]);
        for (const korvane::Finding& finding : set.GetReport().findings) std::cerr << finding.text << '\n';
        std::cout << set.Text("PatientName") << ", " << set.Integer("Rows").value_or(0) << " rows\n";

        set.Set("SeriesDescription", "edited");
        set.Delete("PatientAddress");
        set.Save(argv[2]);  // whole or not at all
    } catch (const korvane::Error& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
