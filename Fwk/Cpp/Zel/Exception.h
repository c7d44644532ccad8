// The framework's exception hierarchy, the Expect scope and backtrace
// records. See docs/runtime.md for the meaning of every exception id.
#pragma once

#include <cstdint>
#include <exception>
#include <initializer_list>

#include "Zel/PtrInterface.h"
#include "Zel/String8.h"

extern "C" {
// Called, when set, by the runtime's crash path with the descriptor it
// writes to, after the native backtrace.
ZEL_API extern void (*printBacktraceFn)(int fd);
}

namespace Zel {

// A captured native stack: frame count and return addresses.
class ZEL_API Backtrace : public PtrInterface {
public:
    static constexpr int kMaxFrames = 64;

    // Captures the calling thread's stack, dropping `skip` innermost frames
    // (beyond this function) but keeping at least `minFrames` when the stack
    // is that deep.
    static Ptr<Backtrace> BacktraceIs(int skip, int minFrames);

    int frames() const { return frames_; }
    void* const* addresses() const { return addrs_; }

private:
    int frames_ = 0;
    void* addrs_[kMaxFrames];
    friend struct BacktraceAccess;
};

// One bit per exception id (bit n <-> id n); ids are listed in
// docs/runtime.md.
class ExceptionIdBitArray {
public:
    constexpr ExceptionIdBitArray() = default;
    constexpr explicit ExceptionIdBitArray(uint64_t bits) : bits_(bits) {}
    constexpr ExceptionIdBitArray(std::initializer_list<int> ids) {
        for (int id : ids) bits_ |= uint64_t(1) << id;
    }
    constexpr uint64_t bits() const { return bits_; }
    constexpr bool has(int id) const { return bits_ >> id & 1; }
    constexpr ExceptionIdBitArray operator|(ExceptionIdBitArray o) const { return ExceptionIdBitArray(bits_ | o.bits_); }
    constexpr ExceptionIdBitArray operator&(ExceptionIdBitArray o) const { return ExceptionIdBitArray(bits_ & o.bits_); }
    constexpr bool empty() const { return bits_ == 0; }
    constexpr bool operator==(ExceptionIdBitArray const&) const = default;
private:
    uint64_t bits_ = 0;
};


class ZEL_API Exception : public std::exception {
public:
    using IdBitArray = ExceptionIdBitArray;

    enum Id {
        idExpectAll = 1,        // in an Expect scope: every exception is anticipated
        idDebugged = 2,         // added when the debug hook reported the exception
        idInternal = 3,
        idRange = 4,
        idMemory = 5,
        idPermission = 6,
        idIllegalName = 7,
        idNameInUse = 8,
        idUnknownAttr = 9,
        idConst = 10,
        idNonwritableAttr = 11,
        idNondeletableAttr = 12,
        idNoImplementation = 13,
        idOpNotSupported = 14,
        idNoTypeNode = 15,
        idParse = 16,
        idRpc = 20,
        idRpcConnection = 21,
        idErrno = 29,
        idType = 33,
    };

    // `ids` is exactly the id set the exception carries; each kind defaults
    // it to its own id.
    explicit Exception(String8 message, IdBitArray ids = IdBitArray());
    Exception(Exception const&) = default;
    Exception& operator=(Exception const&) = default;
    ~Exception() override;

    String8 const& message() const { return message_; }
    void messageIs(String8 m) { message_ = std::move(m); }
    IdBitArray ids() const { return ids_; }
    void idsIs(IdBitArray ids) { ids_ = ids; }
    Ptr<Backtrace> const& backtrace() const { return backtrace_; }
    void backtraceIs(Ptr<Backtrace> b) { backtrace_ = std::move(b); }

    // The exception kind's qualified name, such as "Zel::TypeException".
    virtual char const* name() const { return "Zel::Exception"; }
    char const* what() const noexcept override { return message_.c_str(); }

    // Report exceptions whose ids no enclosing Expect anticipates. Set from
    // the environment variable ZEL_DEBUG_EXCEPTIONS at load.
    static bool debugExceptions_;
    // Where such reports go; the default writes a line and the backtrace to
    // standard error.
    static void (*debugHook_)(Exception const&);

private:
    void finishConstruction();

    String8 message_;
    IdBitArray ids_;
    Ptr<Backtrace> backtrace_;
};

// Declares, for its lifetime on this thread, which exception ids the caller
// anticipates and handles. Nests; costs a thread-local load and store.
class ZEL_API Expect {
public:
    explicit Expect(Exception::IdBitArray ids);
    Expect(int id) : Expect(Exception::IdBitArray{id}) {}
    Expect(int a, int b) : Expect(Exception::IdBitArray{a, b}) {}
    ~Expect();
    Expect(Expect const&) = delete;
    Expect& operator=(Expect const&) = delete;

    static Exception::IdBitArray current();
    // True when an exception with these ids is anticipated here.
    static bool anticipated(Exception::IdBitArray ids);

private:
    Exception::IdBitArray saved_;
};

#define ZEL_EXCEPTION_KIND(Kind, Base, Ident)                                          \
    class ZEL_API Kind : public Base {                                                 \
    public:                                                                            \
        explicit Kind(String8 message, IdBitArray ids = IdBitArray{Ident})             \
            : Base(std::move(message), ids) {}                                         \
        char const* name() const override { return "Zel::" #Kind; }                    \
    };

ZEL_EXCEPTION_KIND(InternalException, Exception, idInternal)
ZEL_EXCEPTION_KIND(RangeException, Exception, idRange)
ZEL_EXCEPTION_KIND(NoTypeNodeException, RangeException, idNoTypeNode)
ZEL_EXCEPTION_KIND(MemoryException, Exception, idMemory)
ZEL_EXCEPTION_KIND(PermissionException, Exception, idPermission)
ZEL_EXCEPTION_KIND(ConstException, PermissionException, idConst)
ZEL_EXCEPTION_KIND(NonwritableAttrException, PermissionException, idNonwritableAttr)
ZEL_EXCEPTION_KIND(NondeletableAttrException, PermissionException, idNondeletableAttr)
ZEL_EXCEPTION_KIND(IllegalNameException, Exception, idIllegalName)
ZEL_EXCEPTION_KIND(NameInUseException, Exception, idNameInUse)
ZEL_EXCEPTION_KIND(UnknownAttrException, Exception, idUnknownAttr)
ZEL_EXCEPTION_KIND(NoImplementationException, Exception, idNoImplementation)
ZEL_EXCEPTION_KIND(OpNotSupportedException, Exception, idOpNotSupported)
ZEL_EXCEPTION_KIND(ParseException, RangeException, idParse)
ZEL_EXCEPTION_KIND(TypeException, Exception, idType)
ZEL_EXCEPTION_KIND(RpcException, Exception, idRpc)

class ZEL_API RpcConnectionException : public RpcException {
public:
    explicit RpcConnectionException(String8 message,
                                    IdBitArray ids = IdBitArray{idRpc, idRpcConnection})
        : RpcException(std::move(message), ids) {}
    char const* name() const override { return "Zel::RpcConnectionException"; }
};

#undef ZEL_EXCEPTION_KIND

// A failed system call: the error number, the system's text for it as the
// message, and the caller's context text ("Failed to grab lock").
class ZEL_API ErrnoException : public Exception {
public:
    ErrnoException(int errnum, String8 context = String8(), IdBitArray ids = IdBitArray{idErrno});
    char const* name() const override { return "Zel::ErrnoException"; }
    int errnum() const { return errnum_; }
    String8 const& context() const { return context_; }

private:
    int errnum_;
    String8 context_;
};

[[noreturn]] ZEL_API void throwInternalException(String8 const& message);

// The system's text for an error number (strerror_r into 256 bytes).
ZEL_API String8 errnoString(int errnum);

} // namespace Zel
