#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>
#include <vector>

#include "Zel/Exception.h"

namespace {

using Zel::Exception;
using Ids = Zel::ExceptionIdBitArray;

template <class E>
uint64_t idsOf() {
    return E("m").ids().bits();
}

// Each kind carries its own id by default (the ids are what Expect scopes
// and clients match on), and is caught as its base kind.
TEST(ExceptionKinds, DefaultIdSetsAndHierarchy) {
    std::pair<uint64_t, int> const own[] = {
        {idsOf<Zel::InternalException>(), 3}, {idsOf<Zel::RangeException>(), 4}, {idsOf<Zel::MemoryException>(), 5},
        {idsOf<Zel::PermissionException>(), 6}, {idsOf<Zel::IllegalNameException>(), 7}, {idsOf<Zel::NameInUseException>(), 8},
        {idsOf<Zel::UnknownAttrException>(), 9}, {idsOf<Zel::ConstException>(), 10}, {idsOf<Zel::NonwritableAttrException>(), 11},
        {idsOf<Zel::NondeletableAttrException>(), 12}, {idsOf<Zel::NoImplementationException>(), 13},
        {idsOf<Zel::OpNotSupportedException>(), 14}, {idsOf<Zel::NoTypeNodeException>(), 15}, {idsOf<Zel::ParseException>(), 16},
        {idsOf<Zel::RpcException>(), 20}, {idsOf<Zel::TypeException>(), 33}, {Zel::ErrnoException(EPERM).ids().bits(), 29},
    };
    for (auto [bits, id] : own) EXPECT_EQ(bits, 1ull << id) << "id " << id;
    EXPECT_EQ(idsOf<Zel::RpcConnectionException>(), 0x300000ull);
    EXPECT_EQ(Exception("m").ids().bits(), 0u);
    EXPECT_EQ(Zel::RangeException("m", Ids{7, 40}).ids().bits(), (1ull << 7) | (1ull << 40));
    EXPECT_THROW(throw Zel::RpcConnectionException("lost"), Zel::RpcException);
    EXPECT_THROW(throw Zel::NoTypeNodeException("x"), Zel::RangeException);
    EXPECT_THROW(throw Zel::ParseException("x"), Zel::RangeException);
    EXPECT_THROW(throw Zel::ConstException("x"), Zel::PermissionException);
    EXPECT_THROW(throw Zel::NonwritableAttrException("x"), Zel::PermissionException);
    EXPECT_THROW(throw Zel::NondeletableAttrException("x"), Zel::PermissionException);
    EXPECT_THROW(throw Zel::UnknownAttrException("x"), Exception);
    EXPECT_THROW(throw Zel::TypeException("x"), std::exception);
    EXPECT_STREQ(Zel::TypeException("why").what(), "why");
    EXPECT_STREQ(Zel::ErrnoException(EPERM).name(), "Zel::ErrnoException");
    // An errno exception carries the number, the system's text and a context.
    Zel::ErrnoException e(ENOENT, "Failed to grab lock");
    EXPECT_EQ(e.errnum(), ENOENT);
    EXPECT_EQ(e.message(), std::strerror(ENOENT));
    EXPECT_EQ(e.context(), "Failed to grab lock");
    EXPECT_EQ(Zel::errnoString(EACCES), std::strerror(EACCES));
    EXPECT_FALSE(Zel::errnoString(123456).empty());   // unknown numbers still get a text
}

TEST(ExpectScopes, NestRestoreAndAreThreadLocal) {
    EXPECT_TRUE(Zel::Expect::current().empty());
    {
        Zel::Expect a(Exception::idRange);
        {
            Zel::Expect b(Exception::idRpcConnection, Exception::idErrno);
            EXPECT_EQ(Zel::Expect::current().bits(), (1ull << 4) | (1ull << 21) | (1ull << 29));
            EXPECT_TRUE(Zel::Expect::anticipated(Ids{29}));
        }
        EXPECT_EQ(Zel::Expect::current().bits(), 1ull << 4);
        EXPECT_FALSE(Zel::Expect::anticipated(Ids{29}));
        bool seenElsewhere = true;
        std::thread([&] { seenElsewhere = !Zel::Expect::current().empty(); }).join();
        EXPECT_FALSE(seenElsewhere);
        {
            Zel::Expect all(Exception::idExpectAll);
            EXPECT_TRUE(Zel::Expect::anticipated(Ids{33}));
        }
    }
    EXPECT_TRUE(Zel::Expect::current().empty());
    EXPECT_FALSE(Zel::Expect::anticipated(Ids{4}));
}

std::vector<Zel::String8> hooked;
void record(Exception const& e) { hooked.push_back(e.message()); }

// An exception records a backtrace, and with debugging on is marked and
// reported to the hook, exactly when no Expect scope anticipates its kind
// ("anything may fail" still records but is not reported); with debugging
// off the hook hears of none.
TEST(Backtraces, CapturedAndReportedUnlessTheKindIsAnticipated) {
    EXPECT_GT(Zel::Backtrace::BacktraceIs(0, 1)->frames(), 0);
    bool const savedOn = Exception::debugExceptions_;
    auto const savedHook = Exception::debugHook_;
    Exception::debugExceptions_ = true;
    Exception::debugHook_ = &record;
    Zel::RangeException plain("unexpected");
    ASSERT_TRUE(plain.backtrace());
    EXPECT_GT(plain.backtrace()->frames(), 0);
    EXPECT_TRUE(plain.ids().has(Exception::idDebugged));
    {
        Zel::Expect probe(Exception::idRange);
        Zel::RangeException probed("probed");
        EXPECT_FALSE(probed.backtrace() || probed.ids().has(Exception::idDebugged));
        Zel::TypeException other("other kind");
        EXPECT_TRUE(other.backtrace() && other.ids().has(Exception::idDebugged));
    }
    {
        Zel::Expect any(Exception::idExpectAll);
        EXPECT_TRUE(Zel::RangeException("handled").backtrace());
    }
    {
        Zel::Expect conn(Exception::idRpcConnection);
        EXPECT_FALSE(Zel::RpcConnectionException("lost").backtrace());
        EXPECT_TRUE(Zel::RpcException("rpc").backtrace());
    }
    Exception::debugExceptions_ = false;
    EXPECT_FALSE(Zel::RangeException("quiet").ids().has(Exception::idDebugged));
    Exception::debugExceptions_ = savedOn;
    Exception::debugHook_ = savedHook;
    EXPECT_EQ(hooked, (std::vector<Zel::String8>{"unexpected", "other kind", "rpc"}));
}

} // namespace
