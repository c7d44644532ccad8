// Same-process mode: commands run in this process's interpreter through one
// PyServer._LocalServer per client.
#include "client/PyClientTestSupport.h"
#include "ZelPy/PyClient.h"
#include "ZelPy/PyObjHandle.h"

using namespace zeltest;

namespace {

Zel::PyClient localClient() { return Zel::PyClient(Zel::String8("demo"), Zel::String8("me"), 'T', nullptr, nullptr); }

// The local server per client, then each way the Python side can be broken.
TEST(PyClientSameProcess, LocalServerPerClientAndBrokenPythonSide) {
    AgentsDir dir;
    dir.write("demo.me", std::to_string(::getpid()) + "\n0\n/none\n");
    Zel::PyClient client = localClient();
    client.connect();
    EXPECT_TRUE(client.sameProcess());
    EXPECT_TRUE(client.connected());
    EXPECT_EQ(client.socket(), -1);
    EXPECT_EQ(client.localServer(), nullptr);   // made on the first command
    char buf[64];
    EXPECT_EQ(client.eval("6*7", buf, sizeof buf), 2);
    EXPECT_STREQ(buf, "42");
    Zel::PyObjHandle* server = client.localServer();
    EXPECT_EQ(client.execute("kept = 'yes'\nprint(kept)", buf, sizeof buf), 4);
    EXPECT_STREQ(buf, "yes\n");
    EXPECT_EQ(client.eval("kept", buf, sizeof buf), 5);
    EXPECT_EQ(client.localServer(), server);
    // A result longer than the buffer: cut and terminated, full length returned.
    char small[4];
    EXPECT_EQ(client.eval("'abcdef'", small, sizeof small), 8);
    EXPECT_STREQ(small, "'ab");
    auto e = thrown<Zel::RpcException>([&] { client.eval("1/0", buf, sizeof buf); });
    EXPECT_EQ(e.message(), "Error calling doEval on _LocalServer instance");
    EXPECT_EQ(e.ids(), Zel::Exception::IdBitArray(0x100000));
    Zel::GilEnsure gil;
    EXPECT_FALSE(PyErr_Occurred());
    // Another client gets its own _LocalServer and namespace.
    Zel::PyClient other = localClient();
    other.connect();
    EXPECT_THROW(other.eval("kept", buf, sizeof buf), Zel::RpcException);
    EXPECT_NE(other.localServer(), client.localServer());

    Zel::PyClient fragile = localClient();
    fragile.connect();
    ASSERT_TRUE(run("import PyServer\nsaved = PyServer._LocalServer\nclass NoMethods(object): pass\n"
                    "class NotText(object):\n    def doEval(self, cmd): return 12345\n"));
    struct { char const* setup; bool exec; char const* message; } const broken[] = {
        {"PyServer._LocalServer = 5\n", false, "PyServer._LocalServer is not a type"},
        {"del PyServer._LocalServer\n", false, "Error occurred instantiating _LocalServer"},
        {"PyServer._LocalServer = NoMethods\n", true, "doExec attribute not found on _LocalServer instance"},
    };
    for (auto const& b : broken) {
        ASSERT_TRUE(run(b.setup));
        EXPECT_EQ(message<Zel::RpcException>(
                      [&] { b.exec ? fragile.execute("x = 1", buf, sizeof buf) : fragile.eval("1", buf, sizeof buf); }),
                  b.message);
        EXPECT_FALSE(PyErr_Occurred());
    }
    ASSERT_TRUE(run("PyServer._LocalServer = NotText\n"));
    Zel::PyClient fresh = localClient();
    fresh.connect();
    EXPECT_EQ(fresh.eval("anything", buf, sizeof buf), 5);   // str() of a non-string
    EXPECT_STREQ(buf, "12345");
    EXPECT_TRUE(run("PyServer._LocalServer = saved\n"));
}

} // namespace
