#ifndef FUZZSTART_H
#define FUZZSTART_H

#include "sandbox.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

// A broken invariant aborts, which libFuzzer reports as a crash and keeps the input for.
#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "invariant broken: %s\n", #condition);                                      \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)

// Both targets start alike: an application object for Qt, and the tests' sandbox, outside which the
// store would remount the real /factory_data.
inline void startFuzzing(const char *name, QtMessageHandler handler)
{
    static int argc = 1;
    static char *argv[] = {const_cast<char *>(name), nullptr};
    new QCoreApplication(argc, argv);
    const QString whyNot = Sandbox::enter();
    if (!whyNot.isEmpty()) {
        std::fprintf(stderr, "%s: %s\n", name, qPrintable(whyNot));
        std::exit(1);
    }
    qInstallMessageHandler(handler);
}

#endif // FUZZSTART_H
