// Any bytes as /factory_data/settings.ini: the constructor loads every key, then print shows them.
#include "fuzzstart.h"
#include "prodinfo.h"
#include "sandbox.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

namespace {

int printed = 0;

// Nothing is shown; the print's lines are only counted.
void countPrinted(QtMsgType type, const QMessageLogContext &context, const QString &)
{
    if (type == QtDebugMsg && qstrcmp(context.function, "print") == 0)
        ++printed;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startFuzzing("settings_fuzzer", countPrinted);
    // Loading and printing never remount, so the partition stays writable and each input is written
    // over the last one instead of mounting a new partition.
    if (!Sandbox::reset({}, Sandbox::Mount::Writable)) {
        std::fprintf(stderr, "settings_fuzzer: cannot mount a tmpfs at /factory_data\n");
        std::exit(1);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray file(reinterpret_cast<const char *>(data), int(size));
    // A fresh time stamp each time, so QSettings rereads the file rather than serving its cache.
    CHECK(Sandbox::rewrite({{QStringLiteral("settings.ini"), file}}));
    {
        ProdInfo prodInfo;
        CHECK(prodInfo.isDataValid());
        printed = 0;
        prodInfo.print();
        CHECK(printed == 56);
    }
    // Loading and printing only read.
    CHECK(Sandbox::files() == QStringList{QStringLiteral("settings.ini")});
    CHECK(Sandbox::read(QStringLiteral("settings.ini")) == file);
    return 0;
}
