#ifndef FUZZSTART_H
#define FUZZSTART_H

#include "sandbox.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

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
