// The parts of the Python module, and conversions that they share.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/pybind11.h>

void BindErrors(pybind11::module_& module);
void BindSeries(pybind11::module_& module);
void BindVolume(pybind11::module_& module);
void BindPictures(pybind11::module_& module);
void BindDataSet(pybind11::module_& module);
void BindJobs(pybind11::module_& module);
void BindBatch(pybind11::module_& module);

/// The text of a path, given as a str or as any object with `__fspath__`.
std::string PathOf(const pybind11::handle& path);
/// One path, or an iterable of them.
std::vector<std::string> PathsOf(const pybind11::object& paths);
/// A JSON text as Python's dictionaries and lists.
pybind11::object FromJson(const std::string& json);
/// The value that a word stands for. A word that is not in the list is a ValueError, in which `what` names the
/// argument.
template <class Value>
Value Choose(const std::string& word, std::initializer_list<std::pair<const char*, Value>> values, const char* what) {
    std::string known;
    for (const auto& [name, value] : values) {
        if (word == name) return value;
        known += (known.empty() ? "'" : ", '") + std::string(name) + "'";
    }
    throw pybind11::value_error(std::string(what) + " is one of " + known);
}
