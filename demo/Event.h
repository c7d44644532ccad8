// Demo::Event: an immutable record of a Switch, numbered by its seq.
#pragma once

#include "Zel/Entity.h"

namespace Demo {

class ZEL_API Event : public Zel::Entity {
public:
    Event(unsigned seq, Zel::String8 text);
    Zel::ZelType const* fwkType() const override { return &_zelType; }

    unsigned seq() const { return seq_; }
    Zel::String8 const& text() const { return text_; }

    static Zel::ZelType const _zelType;
    static Zel::ZelAttr const _zelAttrs[];

private:
    unsigned seq_;
    Zel::String8 text_;
};

} // namespace Demo
