// The strep parsers of the two default-attribute value types,
// Zel::PyGenericIf::TypeAttributeIdKey and DefaultAttributeData, on
// arbitrary text. Byte 0 picks the type (even: the key, odd: the data);
// the rest is the text, copied into a heap block of exactly its size so
// that AddressSanitizer sees any read past its end.
//
// Oracle: a parse fails with the framework's parse or range errors only;
// a parse that succeeds gives a value whose strep (the same text through
// the type's reflective ops) parses back, whole, to an equal value.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "module/mapping/DefaultAttributeData.h"
#include "module/mapping/TypeAttributeIdKey.h"
#include "Zel/GenericIf.h"
#include "Zel/TypeOps.h"

namespace {

using Zel::String8;
using Zel::PyGenericIf::DefaultAttributeData;
using Zel::PyGenericIf::TypeAttributeIdKey;

[[noreturn]] void finding(char const* what, String8 const& text) {
    std::fprintf(stderr, "fuzz_strep_parsers: %s: %.*s\n", what, static_cast<int>(text.size()), text.data());
    std::abort();
}

template <class T>
void roundTrip(char const* begin, char const* end) {
    String8::IteratorConst it = begin;
    // Failures other than RangeException kinds (ParseException and
    // NoTypeNodeException are ones) escape the target: a finding.
    T value(it, end);
    if (it < begin || it > end) finding("parser stopped outside the text", String8(begin, size_t(end - begin)));

    String8 printed = valueToStrep(value);
    String8 viaOps = Zel::makeValue<T>(&T::_zelType, &value, true)->strep();
    if (printed != viaOps) finding("the type's ops print another text than valueToStrep", printed);

    String8::IteratorConst again = printed.begin();
    T reparsed = [&] {
        try {
            return T(again, printed.end());
        } catch (Zel::Exception const& e) {
            std::fprintf(stderr, "fuzz_strep_parsers: %s\n", e.message().c_str());
            finding("printed strep does not parse", printed);
        }
    }();
    if (again != printed.end()) finding("printed strep is not parsed whole", printed);
    if (reparsed != value) finding("printed strep parses to another value", printed);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0) return 0;
    size_t n = size - 1;
    std::unique_ptr<char[]> text(new char[n]);
    if (n) std::memcpy(text.get(), data + 1, n);
    try {
        if (data[0] % 2 == 0) {
            roundTrip<TypeAttributeIdKey>(text.get(), text.get() + n);
        } else {
            roundTrip<DefaultAttributeData>(text.get(), text.get() + n);
        }
    } catch (Zel::RangeException const&) {
        // The clear error: the text is not a strep of the type.
    }
    return 0;
}
