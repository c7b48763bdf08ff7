#include "Calls.h"

namespace py = pybind11;

namespace {

constexpr std::chrono::milliseconds kBetweenCalls{50};
constexpr std::chrono::milliseconds kBetweenLooks{20};

}  // namespace

CallWatcher::CallWatcher(const py::object& progress) : m_Progress(progress) {
    if (py::isinstance<py::bool_>(progress)) {
        m_Progress = progress.cast<bool>() ? py::module_::import("korvane._progress").attr("bar")() : py::none();
    }
    if (!m_Progress.is_none() && PyCallable_Check(m_Progress.ptr()) == 0) {
        throw py::type_error("progress is a callable taking (label, done, total), True or None");
    }
}

void CallWatcher::OnTask(const korvane::Task& task) {
    m_Task = task;
    Call(0);
}

void CallWatcher::OnStep(std::int64_t done) {
    if (std::chrono::steady_clock::now() - m_Told >= kBetweenCalls) Call(done);
}

void CallWatcher::OnTaskEnd() {
    Call(m_Task.total);
}

void CallWatcher::Call(std::int64_t done) {
    if (m_Progress.is_none()) return;
    m_Told = std::chrono::steady_clock::now();
    const py::gil_scoped_acquire locked;
    m_Progress(m_Task.label, done, m_Task.total);
}

bool SignalWatcher::IsStopped() noexcept {
    if (m_bRaised || std::this_thread::get_id() != m_Main) return m_bRaised;
    const auto now = std::chrono::steady_clock::now();
    if (now - m_Looked >= kBetweenLooks) {
        m_Looked = now;
        m_bRaised = SignalRaised();
    }
    return m_bRaised;
}

bool SignalRaised() {
    const py::gil_scoped_acquire locked;
    return PyErr_CheckSignals() != 0;
}

bool IsMainThread() {
    const py::module_ threading = py::module_::import("threading");
    return threading.attr("current_thread")().is(threading.attr("main_thread")());
}
