#include "Zel/AllocTracker.h"

#include <map>

#include "Zel/CollectionSupport.h"
#include "Zel/TypeOps.h"

namespace Zel {

namespace {

// Tracked type names in key order, with their slots (first slot wins).
std::map<String8, uint32_t> slotsByName() {
    std::map<String8, uint32_t> out;
    uint32_t n = static_cast<uint32_t>(allocTrackSlotCount());
    for (uint32_t s = 1; s < n; ++s) {
        if (char const* name = allocTrackSlotName(s)) out.emplace(String8(name), s);
    }
    return out;
}

// Walks a snapshot of the type names; the counts are read when asked for.
class LiveCountIterator final : public AttrIteratorImpl {
public:
    LiveCountIterator() : slots_(slotsByName()), it_(slots_.begin()) {}
    LiveCountIterator(String8 const& at) : slots_(slotsByName()), it_(slots_.find(at)) {}
    bool valid() const override { return it_ != slots_.end(); }
    void advance() override { if (valid()) ++it_; }
    Ptr<GenericIf const> key() const override { return GenericIfTraits<String8>::to(current()->first); }
    Ptr<GenericIf const> value() const override {
        return GenericIfTraits<unsigned long long>::to(allocTrackSlotLive(current()->second));
    }

private:
    std::map<String8, uint32_t>::const_iterator current() const {
        if (!valid()) throw RangeException("invalid iterator");
        return it_;
    }
    std::map<String8, uint32_t> slots_;
    std::map<String8, uint32_t>::const_iterator it_;
};

class LiveCountAttr final : public AttrHandler {
public:
    constexpr LiveCountAttr() = default;
    Ptr<GenericIf const> get(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const override {
        String8 name = collectionKey<String8>(a, index);
        auto slots = slotsByName();
        auto it = slots.find(name);
        if (it == slots.end()) throwMissingKey(a, index);
        (void)obj;
        return GenericIfTraits<unsigned long long>::to(allocTrackSlotLive(it->second));
    }
    bool exist(ZelAttr const& a, GenericIf const&, GenericIf const* key) const override {
        return slotsByName().count(collectionKey<String8>(a, key)) != 0;
    }
    uint64_t members(ZelAttr const&, GenericIf const&) const override { return slotsByName().size(); }
    AttributeIterator iterator(ZelAttr const&, GenericIf const& obj) const override {
        return AttributeIterator(&obj, std::make_unique<LiveCountIterator>());
    }
    AttributeIterator iteratorKey(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const override {
        return AttributeIterator(&obj, std::make_unique<LiveCountIterator>(collectionKey<String8>(a, key)));
    }
};

constexpr LiveCountAttr kLiveCount;
constexpr ArgDesc kCtor[] = {{"name", "Zel::Name"}, {nullptr, nullptr}};
constexpr TypeOps kOps = entityOps<AllocTracker, Name>();

} // namespace

constinit ZelType const AllocTracker::_zelType("Zel::AllocTracker", sizeof(AllocTracker), &Entity::_zelType,
                                               ZelType::isEntity_ | ZelType::hasOwnPtrInterface_,
                                               AllocTracker::_zelAttrs, 1, kCtor, &kOps);
constinit ZelAttr const AllocTracker::_zelAttrs[] = {
    {"liveCount", 1, &AllocTracker::_zelType, &Builtin<unsigned long long>::_zelType,
     ZelAttr::readable_ | ZelAttr::isCollection_ | ZelAttr::directLookup_, &kLiveCount,
     &Builtin<String8>::_zelType},
};

Ptr<AllocTracker> AllocTracker::instance() {
    Ptr<Entity> e = Entity::singletonIs(&_zelType);
    return Ptr<AllocTracker>(static_cast<AllocTracker*>(e.ptr()));
}

uint64_t AllocTracker::liveCount(String8 const& typeName) const {
    auto slots = slotsByName();
    auto it = slots.find(typeName);
    if (it == slots.end()) throw RangeException("liveCount: no member " + typeName);
    return allocTrackSlotLive(it->second);
}

namespace {
TypeRegistration const rAllocTracker(&AllocTracker::_zelType);
} // namespace

namespace {
// The tracker is a process singleton from load on, so it can be found by
// type name (Entity::singleton) before anybody asked for it in C++.
struct CreateAtLoad {
    CreateAtLoad() { AllocTracker::instance(); }
} const createAtLoad;
} // namespace


} // namespace Zel
