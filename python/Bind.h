// The parts of the Python module, and conversions that they share.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <pybind11/pybind11.h>

void BindErrors(pybind11::module_& module);
void BindSeries(pybind11::module_& module);
void BindVolume(pybind11::module_& module);
void BindPictures(pybind11::module_& module);
void BindDerived(pybind11::module_& module);
void BindDataSet(pybind11::module_& module);
void BindJobs(pybind11::module_& module);
void BindNetwork(pybind11::module_& module);
void BindBatch(pybind11::module_& module);

/// The text of a path, given as a str or as any object with `__fspath__`. One that is no UTF-8 is a ValueError: results would
/// have to name it, and cannot.
std::string PathOf(const pybind11::handle& path);
/// One path, or an iterable of them.
std::vector<std::string> PathsOf(const pybind11::object& paths);
/// A JSON text as Python's dictionaries and lists.
pybind11::object FromJson(const std::string& json);
/// The value that a word stands for. Another word is a ValueError, in which `what` names the argument.
template <class Value>
Value Choose(const std::map<std::string, Value>& words, const std::string& word, const char* what) {
    const auto found = words.find(word);
    if (found != words.end()) return found->second;
    std::string known;
    for (const auto& [name, value] : words) known += (known.empty() ? "'" : ", '") + name + "'";
    throw pybind11::value_error(std::string(what) + " is one of " + known);
}
