#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "Zel/Exception.h"

namespace {

using Zel::Exception;
using Ids = Zel::ExceptionIdBitArray;

template <class E>
uint64_t idsOf() {
    return E("m").ids().bits();
}

TEST(ExceptionKinds, DefaultIdSets) {
    EXPECT_EQ(idsOf<Zel::InternalException>(), 1ull << 3);
    EXPECT_EQ(idsOf<Zel::RangeException>(), 1ull << 4);
    EXPECT_EQ(idsOf<Zel::MemoryException>(), 1ull << 5);
    EXPECT_EQ(idsOf<Zel::PermissionException>(), 1ull << 6);
    EXPECT_EQ(idsOf<Zel::IllegalNameException>(), 1ull << 7);
    EXPECT_EQ(idsOf<Zel::NameInUseException>(), 1ull << 8);
    EXPECT_EQ(idsOf<Zel::UnknownAttrException>(), 1ull << 9);
    EXPECT_EQ(idsOf<Zel::ConstException>(), 1ull << 10);
    EXPECT_EQ(idsOf<Zel::NonwritableAttrException>(), 1ull << 11);
    EXPECT_EQ(idsOf<Zel::NondeletableAttrException>(), 1ull << 12);
    EXPECT_EQ(idsOf<Zel::NoImplementationException>(), 1ull << 13);
    EXPECT_EQ(idsOf<Zel::OpNotSupportedException>(), 1ull << 14);
    EXPECT_EQ(idsOf<Zel::NoTypeNodeException>(), 1ull << 15);
    EXPECT_EQ(idsOf<Zel::ParseException>(), 1ull << 16);
    EXPECT_EQ(idsOf<Zel::RpcException>(), 0x100000ull);
    EXPECT_EQ(idsOf<Zel::RpcConnectionException>(), 0x300000ull);
    EXPECT_EQ(idsOf<Zel::TypeException>(), 1ull << 33);
    EXPECT_EQ(Zel::ErrnoException(EPERM).ids().bits(), 0x20000000ull);
    EXPECT_EQ(Exception("m").ids().bits(), 0u);
    EXPECT_EQ(Zel::RangeException("m", Ids{7, 40}).ids().bits(), (1ull << 7) | (1ull << 40));
}

TEST(ExceptionKinds, NamesAndHierarchy) {
    EXPECT_STREQ(Zel::TypeException("m").name(), "Zel::TypeException");
    EXPECT_STREQ(Zel::RpcConnectionException("m").name(), "Zel::RpcConnectionException");
    EXPECT_STREQ(Zel::ErrnoException(EPERM).name(), "Zel::ErrnoException");
    EXPECT_THROW(throw Zel::RpcConnectionException("lost"), Zel::RpcException);
    EXPECT_THROW(throw Zel::NoTypeNodeException("x"), Zel::RangeException);
    EXPECT_THROW(throw Zel::ParseException("x"), Zel::RangeException);
    EXPECT_THROW(throw Zel::ConstException("x"), Zel::PermissionException);
    EXPECT_THROW(throw Zel::NonwritableAttrException("x"), Zel::PermissionException);
    EXPECT_THROW(throw Zel::NondeletableAttrException("x"), Zel::PermissionException);
    EXPECT_THROW(throw Zel::UnknownAttrException("x"), Exception);
    EXPECT_THROW(throw Zel::TypeException("x"), std::exception);
    EXPECT_STREQ(Zel::TypeException("why").what(), "why");
}

TEST(ExceptionKinds, ErrnoCarriesNumberSystemTextAndContext) {
    Zel::ErrnoException e(ENOENT, "Failed to grab lock");
    EXPECT_EQ(e.errnum(), ENOENT);
    EXPECT_EQ(e.message(), std::strerror(ENOENT));
    EXPECT_EQ(e.context(), "Failed to grab lock");
    EXPECT_EQ(Zel::errnoString(EACCES), std::strerror(EACCES));
    EXPECT_FALSE(Zel::errnoString(123456).empty());   // unknown numbers still get a text
}

TEST(ExpectScopes, NestAndRestore) {
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
        {
            Zel::Expect all(Exception::idExpectAll);
            EXPECT_TRUE(Zel::Expect::anticipated(Ids{33}));
        }
    }
    EXPECT_TRUE(Zel::Expect::current().empty());
    EXPECT_FALSE(Zel::Expect::anticipated(Ids{4}));
}

TEST(ExpectScopes, AreThreadLocal) {
    Zel::Expect a(Exception::idType);
    bool seenElsewhere = true;
    std::thread([&] { seenElsewhere = !Zel::Expect::current().empty(); }).join();
    EXPECT_FALSE(seenElsewhere);
}

TEST(Backtraces, CapturedUnlessTheKindIsAnticipated) {
    EXPECT_GT(Zel::Backtrace::BacktraceIs(0, 1)->frames(), 0);
    Zel::RangeException plain("m");
    ASSERT_TRUE(plain.backtrace());
    EXPECT_GT(plain.backtrace()->frames(), 0);
    {
        Zel::Expect probe(Exception::idRange);
        EXPECT_FALSE(Zel::RangeException("m").backtrace());
        EXPECT_TRUE(Zel::TypeException("m").backtrace());   // another kind
    }
    {
        Zel::Expect any(Exception::idExpectAll);   // "anything may fail" still records
        EXPECT_TRUE(Zel::RangeException("m").backtrace());
    }
    {
        Zel::Expect conn(Exception::idRpcConnection);
        EXPECT_FALSE(Zel::RpcConnectionException("m").backtrace());
        EXPECT_TRUE(Zel::RpcException("m").backtrace());
    }
}

// Installs a recording debug hook with debugging on, and restores both.
class DebugHook : public ::testing::Test {
protected:
    static std::vector<Zel::String8>& seen() {
        static std::vector<Zel::String8> s;
        return s;
    }
    static void record(Exception const& e) { seen().push_back(e.message()); }
    void SetUp() override {
        seen().clear();
        Exception::debugExceptions_ = true;
        Exception::debugHook_ = &record;
    }
    void TearDown() override {
        Exception::debugExceptions_ = savedOn_;
        Exception::debugHook_ = savedHook_;
    }
    bool savedOn_ = Exception::debugExceptions_;
    void (*savedHook_)(Exception const&) = Exception::debugHook_;
};

TEST_F(DebugHook, ReportsOnlyUnanticipatedExceptions) {
    Zel::RangeException unexpected("unexpected");
    EXPECT_TRUE(unexpected.ids().has(Exception::idDebugged));
    {
        Zel::Expect probe(Exception::idRange);
        Zel::RangeException probed("probed");
        EXPECT_FALSE(probed.ids().has(Exception::idDebugged));
        Zel::TypeException other("other kind");
        EXPECT_TRUE(other.ids().has(Exception::idDebugged));
    }
    {
        Zel::Expect any(Exception::idExpectAll);
        Zel::RangeException handled("handled");
    }
    EXPECT_EQ(seen(), (std::vector<Zel::String8>{"unexpected", "other kind"}));
}

TEST_F(DebugHook, SilentWhenDebuggingIsOff) {
    Exception::debugExceptions_ = false;
    Zel::RangeException e("quiet");
    EXPECT_FALSE(e.ids().has(Exception::idDebugged));
    EXPECT_TRUE(seen().empty());
}

} // namespace
