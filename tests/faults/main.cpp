#include "FaultRun.h"

#include <QDebug>
#include <cstdio>
#include <dlfcn.h>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    if (!loadFailingCalls(argv)) {
        std::fprintf(stderr, "the library of failing calls cannot be loaded\n");
        return 1;
    }
    // The runtime library of Fortran ends the process when it finds no memory while it is loaded,
    // and Qt when it prepares its first diagnostic. Neither is the job's doing, and a host that
    // cares does both before its jobs, as is done here.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    qDebug("ready");
    if (dlopen(VORN_TEST_HOME "/lib/libfault_scale.so", RTLD_LAZY) == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
