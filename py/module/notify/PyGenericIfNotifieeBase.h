// Zel::PyGenericIfNotifieeBase: an attribute notifiee of any framework
// object that holds a Python handler and an optional filter of attribute
// names. It owns the state and its reflective interface, so Python reaches
// the filter through the ordinary attribute methods of a GifPtr;
// Zel::PyGenericIfNotifiee (PyGenericIfNotifiee.h) adds the call into Python.
//
// The filter has no lock of its own: it is read on the activity thread and
// written through reflection, both with the activity lock held.
#pragma once

#include <cstdint>
#include <functional>

#include "Zel/HashMapGeneric.h"
#include "Zel/Notifiee.h"
#include "ZelPy/PyObjHandle.h"

namespace Zel {

class ZEL_API PyGenericIfNotifieeBase : public GenericIf::Notifiee {
public:
    // One filter entry: attribute name -> forward it or not.
    class ZelFilterAttr : public HashMapEntry<String8, bool> {
    public:
        using HashMapEntry::HashMapEntry;
    };
    // Names hash mostly in their low bits; the map buckets by the top bits.
    using FilterAttrMap = HashMapGeneric<String8, bool, String8HashReversed, std::equal_to<String8>,
                                         std::less<String8>, ZelFilterAttr>;

    PyGenericIfNotifieeBase(Ptr<GenericIf const> gifNotifier, Ptr<PyObjHandle> handler);
    ~PyGenericIfNotifieeBase() override;

    ZelType const* fwkType() const override { return &_zelType; }

    Ptr<PyObjHandle> handler() const { return handler_; }
    PyObjHandle* handlerPtr() const { return handler_.ptr(); }

    bool filtered() const { return filtered_; }
    void filteredIs(bool f) {
        filtered_ = f;
        ++filterChanges_;
    }

    // The entry's value; false when there is none.
    bool filterAttr(String8 const& name) const;
    virtual void filterAttrIs(String8 const& name, bool value);
    ZelFilterAttr* newFilterAttr(String8 const& name, bool value);
    // False when there was no entry.
    virtual bool filterAttrDel(String8 const& name);
    FilterAttrMap::iterator filterAttrDel(FilterAttrMap::iterator it);
    void filterAttrDelAll();
    // Nobody observes the filter.
    void filterAttrNotify(String8 const&) const {}
    FilterAttrMap const& filterAttrMap() const { return filterAttr_; }

    // Whether a notification of `attr` goes on to the handler: all do
    // unless filtered; then only names with an entry that is true. The
    // last answer is remembered until the filter changes: notifications
    // mostly repeat one attribute, and the lookup builds and hashes its name.
    bool forwards(ZelAttr const* attr) const {
        if (!filtered_) return true;
        if (attr != lastAttr_ || filterChanges_ != lastChanges_) rememberForwards(attr);
        return lastForwards_;
    }

    static ZelType const _zelType;
    static ZelAttr const _zelAttrs[];

private:
    void rememberForwards(ZelAttr const* attr) const;

    Ptr<PyObjHandle> handler_;
    bool filtered_ = false;
    FilterAttrMap filterAttr_;
    // Every change of the filter counts here (entry values change in place,
    // which the map's own version does not see).
    uint64_t filterChanges_ = 1;
    mutable uint64_t lastChanges_ = 0;
    mutable ZelAttr const* lastAttr_ = nullptr;
    mutable bool lastForwards_ = false;
};

ZEL_API Ptr<PyGenericIfNotifieeBase> pyGenericIfNotifieeBaseFactory(Ptr<GenericIf const> gifNotifier,
                                                                    Ptr<PyObjHandle> handler);

} // namespace Zel
