// The binary's one interpreter, with _Zel and the demo types imported; the
// main thread keeps the interpreter lock.
#include "Support.h"

namespace {

class PythonEnv : public ::testing::Environment {
public:
    void SetUp() override {
        if (!Py_IsInitialized()) {
            Py_Initialize();
            Zel::compat::initThreads();
        }
        Zel::GilEnsure gil;
        for (char const* m : {"_Zel", "ZelDemo"}) {
            Zel::PyRef mod(PyImport_ImportModule(m));
            if (!mod) PyErr_Print();
            ASSERT_TRUE(mod) << m;
        }
    }
};
::testing::Environment* const kEnv = ::testing::AddGlobalTestEnvironment(new PythonEnv);

} // namespace
