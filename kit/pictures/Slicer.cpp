#include "Slicer.h"

#include "../core/Error.h"
#include "../core/StandingThreads.h"
#include "../study/VolumeData.h"
#include "SliceJob.h"
#include "SliceableVolume.h"

#include "../../slicing/SlabLayers.h"

#include <array>
#include <mutex>
#include <optional>
#include <utility>

namespace korvane {

class Slicer::Parts {
public:
    Parts(std::shared_ptr<const Volume> volume, const SlicerOptions& options)
        : m_pVolume(std::move(volume)), m_nMost(options.slabMemory), m_Sliceable(*m_pVolume, SliceOptions{}),
          m_Borrowed(m_Sliceable.Get().GetVolume()) {}

    const Volume& GetVolume() const { return *m_pVolume; }

    template <class Take>
    auto Run(const SliceOptions& options, Take take) {
        Check(options);
        const std::lock_guard lock(m_Mutex);
        const WindowChoice* window = nullptr;
        if (!options.values && !options.window && options.windowName.empty()) {
            if (!m_Window) m_Window = FindWindow(m_Sliceable.Get(), options);
            window = &*m_Window;
        }
        m_pLast = options.slab > 0 ? &ChooseLayers(options) : nullptr;
        // What pictures leave out is told once for pictures and for values, of slabs and of single planes.
        bool& told = m_bTold[options.values ? 1 : 0][options.slab > 0 ? 1 : 0];
        SliceJob job(m_Sliceable.Get(), options, "", {window, m_pLast, &m_Threads, &m_Borrowed, !told});
        told = told || options.watcher != nullptr;
        return take(job);
    }

    SlicerFacts GetFacts() const {
        const std::lock_guard lock(m_Mutex);
        SlicerFacts facts;
        facts.copyBytes = m_Sliceable.GetBytes();
        for (const SlabLayers& layers : m_Layers) facts.layerBytes += layers.GetBytes();
        if (m_pLast != nullptr) {
            facts.slabStep = m_pLast->GetStep();
            facts.rowsKept = m_pLast->GetRowsKept();
            facts.rowsSampled = m_pLast->GetRowsSampled();
        }
        return facts;
    }

private:
    void Check(const SliceOptions& options) const {
        if (options.stored || options.raw16 || options.pictures != SliceOptions::Pictures::One || options.count != 1) {
            throw Error(ErrorKind::WrongArgument, "a slicer makes one picture of a plane at a time");
        }
        if (options.uptake && !m_pVolume->GetData().GetSeriesVolume().HasUptake()) {
            throw Error(ErrorKind::WrongArgument, "a slicer shows uptake of a volume that was loaded with it");
        }
    }

    /// Those of the view, with as many bytes as the others leave.
    SlabLayers& ChooseLayers(const SliceOptions& options) {
        SlabLayers& chosen = m_Layers[options.view ? static_cast<std::size_t>(*options.view) : kOwn];
        std::size_t others = 0;
        for (const SlabLayers& layers : m_Layers) others += &layers == &chosen ? 0 : layers.GetBytes();
        chosen.SetMost(m_nMost > others ? m_nMost - others : 0);
        return chosen;
    }

    static constexpr std::size_t kOwn = 3;  // layers of planes that are no view

    std::shared_ptr<const Volume> m_pVolume;
    std::size_t m_nMost;
    SliceableVolume m_Sliceable;
    CVolume m_Borrowed;          // its voxels, with a count of its own: that of the volume is for one thread at a time
    mutable std::mutex m_Mutex;  // for what follows
    std::optional<WindowChoice> m_Window;
    std::array<SlabLayers, 4> m_Layers{SlabLayers(0), SlabLayers(0), SlabLayers(0), SlabLayers(0)};
    SlabLayers* m_pLast = nullptr;
    bool m_bTold[2][2] = {};
    StandingThreads m_Threads;
};

Slicer::Slicer(std::shared_ptr<const Volume> volume, const SlicerOptions& options) {
    if (volume == nullptr) throw Error(ErrorKind::WrongArgument, "a slicer without a volume");
    m_pParts = std::make_unique<Parts>(std::move(volume), options);
}

Slicer::Slicer(Volume&& volume, const SlicerOptions& options)
    : Slicer(std::make_shared<const Volume>(std::move(volume)), options) {}

Slicer::Slicer(Slicer&& other) noexcept = default;
Slicer& Slicer::operator=(Slicer&& other) noexcept = default;
Slicer::~Slicer() = default;

const Volume& Slicer::GetVolume() const {
    return m_pParts->GetVolume();
}

SlicePicture Slicer::Draw(const SliceOptions& options) {
    return m_pParts->Run(options, [](SliceJob& job) { return job.Draw(); });
}

SliceValues Slicer::TakeValues(const SliceOptions& options) {
    SliceOptions wanted = options;
    wanted.values = true;
    return m_pParts->Run(wanted, [](SliceJob& job) { return job.TakeValues(); });
}

SlicerFacts Slicer::GetFacts() const {
    return m_pParts->GetFacts();
}

}  // namespace korvane
