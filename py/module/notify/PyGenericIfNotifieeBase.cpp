#include "module/notify/PyGenericIfNotifieeBase.h"

#include <memory>
#include <vector>

#include "Zel/Attr.h"
#include "Zel/CollectionSupport.h"
#include "Zel/TypeOps.h"

namespace Zel {

PyGenericIfNotifieeBase::PyGenericIfNotifieeBase(Ptr<GenericIf const> gifNotifier, Ptr<PyObjHandle> handler)
    : GenericIf::Notifiee(std::move(gifNotifier)), handler_(std::move(handler)), filterAttr_(4) {}

PyGenericIfNotifieeBase::~PyGenericIfNotifieeBase() {
    // The entries go before the handler; the base unregisters last.
    filterAttr_.clear();
}

bool PyGenericIfNotifieeBase::filterAttr(String8 const& name) const {
    ZelFilterAttr const* e = filterAttr_.find(name);
    return e && e->value();
}

void PyGenericIfNotifieeBase::filterAttrIs(String8 const& name, bool value) {
    ++filterChanges_;
    if (ZelFilterAttr* e = filterAttr_.find(name)) {
        e->value() = value;
    } else {
        newFilterAttr(name, value);
    }
    filterAttrNotify(name);
}

PyGenericIfNotifieeBase::ZelFilterAttr* PyGenericIfNotifieeBase::newFilterAttr(String8 const& name, bool value) {
    ++filterChanges_;
    return filterAttr_.insert(name, value);
}

bool PyGenericIfNotifieeBase::filterAttrDel(String8 const& name) {
    if (!filterAttr_.erase(name)) return false;
    ++filterChanges_;
    filterAttrNotify(name);
    return true;
}

PyGenericIfNotifieeBase::FilterAttrMap::iterator PyGenericIfNotifieeBase::filterAttrDel(FilterAttrMap::iterator it) {
    String8 name = it->key();
    auto next = filterAttr_.erase(it);
    ++filterChanges_;
    filterAttrNotify(name);
    return next;
}

void PyGenericIfNotifieeBase::filterAttrDelAll() {
    filterAttr_.clear();
    ++filterChanges_;
}

void PyGenericIfNotifieeBase::rememberForwards(ZelAttr const* attr) const {
    lastForwards_ = filterAttr(String8(attr->name()));
    lastAttr_ = attr;
    lastChanges_ = filterChanges_;
}

Ptr<PyGenericIfNotifieeBase> pyGenericIfNotifieeBaseFactory(Ptr<GenericIf const> gifNotifier,
                                                            Ptr<PyObjHandle> handler) {
    Ptr<PyGenericIfNotifieeBase> n = zelNew<PyGenericIfNotifieeBase>(std::move(gifNotifier), std::move(handler));
    if (!n) throw RangeException("null ValidPtr");
    return n;
}

namespace {

using Base = PyGenericIfNotifieeBase;

// Walks a key-ordered snapshot of the filter, skipping entries removed
// from the map since the snapshot was taken.
class FilterAttrIterator final : public AttrIteratorImpl {
public:
    FilterAttrIterator(Base* self, String8 const* at) : self_(self), entries_(self->filterAttrMap().ordered()) {
        if (at) {
            pos_ = entries_.size();
            for (size_t i = 0; i < entries_.size(); ++i) {
                if (entries_[i]->key() == *at) pos_ = i;
            }
        }
    }
    bool valid() const override {
        settle();
        return pos_ < entries_.size();
    }
    void advance() override {
        if (valid()) ++pos_;
    }
    Ptr<GenericIf const> key() const override { return GenericIfTraits<String8>::to(current().key()); }
    Ptr<GenericIf const> value() const override { return GenericIfTraits<bool>::to(current().value()); }
    void deleteCurrent() override {
        String8 name = current().key();
        ++pos_;
        self_->filterAttrDel(name);
    }

private:
    Base::ZelFilterAttr const& current() const {
        if (!valid()) throw RangeException("invalid iterator");
        return *entries_[pos_];
    }
    void settle() const {
        while (pos_ < entries_.size() && self_->filterAttrMap().find(entries_[pos_]->key()) != entries_[pos_].ptr()) {
            ++pos_;
        }
    }

    Base* self_;   // kept alive by the AttributeIterator's object reference
    std::vector<Ptr<Base::ZelFilterAttr>> entries_;
    mutable size_t pos_ = 0;
};

class FilterAttrHandler final : public AttrHandler {
public:
    constexpr FilterAttrHandler() = default;
    Ptr<GenericIf const> get(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const override {
        return GenericIfTraits<bool>::to(selfOf<Base>(obj)->filterAttr(collectionKey<String8>(a, index)));
    }
    void set(ZelAttr const& a, GenericIf const& obj, GenericIf const* index, GenericIf const* value) const override {
        selfOf<Base>(obj)->filterAttrIs(collectionKey<String8>(a, index), GenericIfTraits<bool>::from(value));
    }
    void del(ZelAttr const& a, GenericIf const& obj, GenericIf const* index) const override {
        selfOf<Base>(obj)->filterAttrDel(collectionKey<String8>(a, index));
    }
    bool exist(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const override {
        return selfOf<Base>(obj)->filterAttrMap().find(collectionKey<String8>(a, key)) != nullptr;
    }
    uint64_t members(ZelAttr const&, GenericIf const& obj) const override {
        return selfOf<Base>(obj)->filterAttrMap().size();
    }
    uint64_t version(ZelAttr const&, GenericIf const& obj) const override {
        return selfOf<Base>(obj)->filterAttrMap().version();
    }
    AttributeIterator iterator(ZelAttr const&, GenericIf const& obj) const override {
        return AttributeIterator(&obj, std::make_unique<FilterAttrIterator>(selfOf<Base>(obj), nullptr));
    }
    AttributeIterator iteratorKey(ZelAttr const& a, GenericIf const& obj, GenericIf const* key) const override {
        String8 k = collectionKey<String8>(a, key);
        return AttributeIterator(&obj, std::make_unique<FilterAttrIterator>(selfOf<Base>(obj), &k));
    }
};

// Reflective construction goes through the factory like every creation.
Ptr<GenericIf> constructNotifiee(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.size() != 2) throwConstructorCount(type, 2, args.size());
    Ptr<Base> n = pyGenericIfNotifieeBaseFactory(args[0], GenericIfTraits<Ptr<PyObjHandle>>::from(args[1].ptr()));
    return makeObject(n->fwkType(), n.ptr(), isConst);
}

constexpr AccessorAttr<&Base::handler> kHandler;
constexpr AccessorAttr<&Base::filtered, &Base::filteredIs> kFiltered;
constexpr FilterAttrHandler kFilterAttr;
constexpr ArgDesc kCtor[] = {{"gifNotifier", "Zel::GenericIf"}, {"handler", "Zel::PyObjHandle"}, {nullptr, nullptr}};
constexpr TypeOps kOps{&makeObject, &constructNotifiee, &objectHash, &objectStrep, &objectEqual};

} // namespace

constinit ZelType const PyGenericIfNotifieeBase::_zelType(
    "Zel::PyGenericIfNotifieeBase", sizeof(PyGenericIfNotifieeBase), &PtrInterface::NotifieeConst::_zelType,
    ZelType::isEntity_ | ZelType::hasOwnPtrInterface_, PyGenericIfNotifieeBase::_zelAttrs, 3, kCtor, &kOps);
constinit ZelAttr const PyGenericIfNotifieeBase::_zelAttrs[] = {
    {"handler", 262, &PyGenericIfNotifieeBase::_zelType, &PyObjHandle::_zelType, ZelAttr::readable_, &kHandler},
    {"filtered", 263, &PyGenericIfNotifieeBase::_zelType, &Builtin<bool>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_, &kFiltered},
    // A keyed read may go straight to the entry: an absent name reads false.
    {"filterAttr", 264, &PyGenericIfNotifieeBase::_zelType, &Builtin<bool>::_zelType,
     ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::isCollection_ | ZelAttr::deletable_ | ZelAttr::directLookup_,
     &kFilterAttr, &Builtin<String8>::_zelType},
};

namespace {
TypeRegistration const rPyGenericIfNotifieeBase(&PyGenericIfNotifieeBase::_zelType);
} // namespace

} // namespace Zel
