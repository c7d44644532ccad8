#include "Zel/PtrInterface.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "Zel/Demangle.h"
#include "Zel/Exception.h"

namespace Zel {

bool VFPtrInterface::enableThreadSafePointers = false;

PtrInterface::~PtrInterface() {
    if (trackSlot_) trackDeallocation(trackSlot_);
}

ZelType const* PtrInterface::fwkType() const { return nullptr; }

void PtrInterface::handleZeroRef() const { delete this; }

NotifieeList* PtrInterface::notifieeList(bool) const { return nullptr; }

void* PtrInterface::zelMemAlloc(size_t size) {
    void* p = std::malloc(size ? size : 1);
    if (!p) throw MemoryException("out of memory");
    return p;
}

void PtrInterface::zelMemFree(void* p) noexcept { std::free(p); }

namespace {

struct TrackSlot {
    std::string name;
    size_t size;
    std::atomic<uint64_t> live{0};
};

// Slots are never removed, so a slot pointer stays valid for the process.
// A deque-like table of fixed chunks keeps lookups lock-free.
constexpr size_t kChunk = 256;
constexpr size_t kMaxChunks = 64;

struct TrackTable {
    std::mutex mutex;
    TrackSlot* chunks[kMaxChunks] = {};
    std::atomic<uint32_t> count{1};   // slot 0 means "not tracked"

    TrackSlot& at(uint32_t i) { return chunks[i / kChunk][i % kChunk]; }
};

TrackTable& table() {
    static TrackTable* t = new TrackTable;   // never destroyed: used by static destructors
    return *t;
}

} // namespace

uint32_t zelAllocTrackTypeInfo_(std::type_info const& info, size_t size) {
    TrackTable& t = table();
    std::string name = demangledName(info).c_str();
    std::lock_guard<std::mutex> g(t.mutex);
    uint32_t n = t.count.load(std::memory_order_relaxed);
    for (uint32_t i = 1; i < n; ++i) {
        if (t.at(i).name == name) return i;
    }
    if (n / kChunk >= kMaxChunks) return 0;
    if (!t.chunks[n / kChunk]) t.chunks[n / kChunk] = new TrackSlot[kChunk];
    t.at(n).name = std::move(name);
    t.at(n).size = size;
    t.count.store(n + 1, std::memory_order_release);
    return n;
}

void trackAllocation(uint32_t slot) {
    if (slot) table().at(slot).live.fetch_add(1, std::memory_order_relaxed);
}

void trackDeallocation(uint32_t slot) {
    if (slot) table().at(slot).live.fetch_sub(1, std::memory_order_relaxed);
}

size_t allocTrackSlotCount() { return table().count.load(std::memory_order_acquire); }

char const* allocTrackSlotName(uint32_t slot) {
    return slot && slot < allocTrackSlotCount() ? table().at(slot).name.c_str() : nullptr;
}

uint64_t allocTrackSlotLive(uint32_t slot) {
    return slot && slot < allocTrackSlotCount() ? table().at(slot).live.load(std::memory_order_relaxed) : 0;
}

uint64_t allocTrackLiveCount(char const* typeName) {
    uint32_t n = static_cast<uint32_t>(allocTrackSlotCount());
    for (uint32_t i = 1; i < n; ++i) {
        if (std::strcmp(table().at(i).name.c_str(), typeName) == 0) return allocTrackSlotLive(i);
    }
    return 0;
}

} // namespace Zel
