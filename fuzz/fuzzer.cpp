// Any bytes as the EEPROM image (FUZZ_FILE "eeprom": the store converts it into settings.ini) or as the
// settings file: the store must load and print them, write nothing but the settings file, and leave the
// partition read-only. A broken rule aborts, which libFuzzer reports as a crash and keeps the input for.
#include "prodinfo.h"
#include "support.h"

#include <QCoreApplication>

#include <cstdlib>

namespace {
const QString name = qstrcmp(FUZZ_FILE, "eeprom") == 0 ? "eeprom" : "settings.ini";
} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    new QCoreApplication(*argc, *argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    if (!Sandbox::enter().isEmpty()) // outside it the store would remount the real /factory_data
        std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), int(size));
    if (!Sandbox::reset({{name, bytes}}))
        std::abort();
    ProdInfo prodInfo;
    prodInfo.print();
    // A read-only remount refused from outside (see Sandbox::remount) leaves the partition writable: again.
    static bool again = false;
    if ((again = !again && !Sandbox::isReadOnly()))
        return LLVMFuzzerTestOneInput(data, size);
    const QStringList written = name == "eeprom" ? QStringList{"eeprom", "settings.ini"} : QStringList{name};
    if (!prodInfo.isDataValid() || !Sandbox::isReadOnly() ||
        QDir("/factory_data").entryList(QDir::Files) != written || contents("/factory_data/" + name) != bytes)
        std::abort();
    return 0;
}
