// What fuzz targets have in common that seed their corpus.
#pragma once

#include <filesystem>
#include <string>

/// The corpus folder, which the last argument names, where it is there and empty: then it is to be seeded. Else "".
inline std::string EmptyCorpus(int argumentCount, char** arguments) {
    std::string corpus = arguments[argumentCount - 1];
    return std::filesystem::is_directory(corpus) && std::filesystem::is_empty(corpus) ? corpus : std::string();
}
