// Any bytes as /factory_data/eeprom on a read-only partition with no settings file: the constructor
// reads, validates, unpacks and converts the image into settings.ini, then loads it.
#include "fuzzstart.h"
#include "prodinfo.h"
#include "sandbox.h"

#include <QCoreApplication>
#include <QFile>
#include <QtEndian>

#include <cstdio>
#include <cstdlib>

namespace {

void discard(QtMsgType, const QMessageLogContext &, const QString &) {}

quint32 checksumOf(const uchar *image)
{
    quint32 sum = 0xDEADBEEF;
    for (int at = 0; at < EepromData::Checksum; at += 4)
        sum ^= qFromLittleEndian<quint32>(image + at);
    return sum;
}

bool checksumHolds(const QByteArray &image)
{
    const uchar *bytes = reinterpret_cast<const uchar *>(image.constData());
    return image.size() >= EepromData::Size &&
           checksumOf(bytes) == qFromLittleEndian<quint32>(bytes + EepromData::Checksum);
}

struct Field
{
    const char *property;
    QVariant value; // numbers as qint64
};

// What the reloaded members must hold: the image's fields when its checksum holds, otherwise the
// initial values, which the conversion writes all the same.
QList<Field> expectedFields(const QByteArray &image, bool valid)
{
    static const uchar zeros[EepromData::Size] = {};
    const uchar *b = valid ? reinterpret_cast<const uchar *>(image.constData()) : zeros;
    const auto u8 = [b](int at) { return QVariant(qint64(b[at])); };
    const auto u32 = [b](int at) { return QVariant(qint64(qFromLittleEndian<quint32>(b + at))); };
    const auto ints = [b, valid](int at, int count, bool isSigned) {
        QListOfInts list;
        for (int i = 0; valid && i < count; ++i)
            list.append(isSigned ? int(qFromLittleEndian<qint16>(b + at + 2 * i))
                                 : int(qFromLittleEndian<quint16>(b + at + 2 * i)));
        return QVariant::fromValue(list);
    };
    // The identifier bytes of a Telvar block are stored highest first.
    const auto telvar = [b](int index) {
        const uchar *t = b + EepromData::TelvarCalib + EepromData::TelvarBlockSize * index;
        return QVariant::fromValue(QListOfInts{t[0], t[3], t[2], t[1], t[4]});
    };
    QVariantList points;
    for (int k = 0; valid && k < 16; ++k) {
        const uchar *p = b + EepromData::TesselDACCalibration + 4 * k;
        points.append(QPoint(qFromLittleEndian<quint16>(p), qFromLittleEndian<quint16>(p + 2)));
    }
    return {
        {"SuSerial", valid ? QString::fromLatin1(reinterpret_cast<const char *>(b), 10) : QString()},
        {"SuModel", u8(EepromData::SuModel)},
        {"ImageSensorType", u8(EepromData::ImageSensorType)},
        {"ImageSensorSerial", u32(EepromData::ImageSensorSerial)},
        {"ImageSensorTempCalibration", ints(EepromData::ImageSensorTempCalibration, 6, false)},
        {"BoardTestStatus", u8(EepromData::BoardTestStatus)},
        {"SuTestStatus", u8(EepromData::SuTestStatus)},
        {"CalibrationStatus", u8(EepromData::CalibrationStatus)},
        {"DutStatus", u8(EepromData::DutStatus)},
        {"TelvarSensorPos", u8(EepromData::TelvarSensorPos)},
        {"TelvarCalib0", telvar(0)},
        {"TelvarCalib1", telvar(1)},
        {"TelvarCalib2", telvar(2)},
        {"WifiRegion", valid ? u32(EepromData::WifiRegion) : QVariant(qint64(0xFFFFFFFF))},
        {"UsbPower", u8(EepromData::UsbPower)},
        {"AuxDebug", u8(EepromData::AuxDebug)},
        {"IrFilterType", u8(EepromData::IrFilterType)},
        {"ShellColor", u8(EepromData::ShellColor)},
        {"TraceLevel", u32(EepromData::TraceLevel)},
        {"SucDebugEnableMask", u32(EepromData::SucDebugEnableMask)},
        {"ImxDebugEnableMask", u32(EepromData::ImxDebugEnableMask)},
        {"AccelerometerCalibration", ints(EepromData::AccelerometerCalibration, 10, true)},
        {"ProximityCalibration", ints(EepromData::ProximityCalibration, 2, true)},
        {"ThumbwheelMode", u8(EepromData::ThumbwheelMode)},
        {"NrofTesselDACCalibrationValues", u8(EepromData::NrofTesselDACCalibrationValues)},
        {"TesselDACCalibration", points},
        {"AccelerometerCalibrationExt", ints(EepromData::AccelerometerCalibrationExt, 18, true)},
        // Not in the image, so not in the file: the loader's defaults.
        {"AccelerometerCalibrationTemp", qint64(0)},
        {"AccelerometerTemperatureCalib", QVariant::fromValue(QListOfInts())},
    };
}

// The partition as the tool finds it on a camera that has only its image: read-only, no settings
// file. The first input gets a fresh tmpfs; later ones the same tmpfs with the last run's settings
// file removed and the image written over, which is twice as fast as mounting anew. The checks after
// each run make sure nothing else was left on it, so every run starts from the same state.
bool seed(const QByteArray &image)
{
    static bool mounted = false;
    if (!mounted)
        return mounted = Sandbox::reset({{QStringLiteral("eeprom"), image}});
    return Sandbox::remount(Sandbox::Mount::Writable) &&
           QFile::remove(QStringLiteral("/factory_data/settings.ini")) &&
           Sandbox::rewrite({{QStringLiteral("eeprom"), image}}) &&
           Sandbox::remount(Sandbox::Mount::ReadOnly);
}

bool same(const QVariant &actual, const QVariant &wanted)
{
    if (wanted.userType() == qMetaTypeId<QListOfInts>())
        return actual.value<QListOfInts>() == wanted.value<QListOfInts>();
    if (wanted.userType() == QMetaType::LongLong)
        return actual.toLongLong() == wanted.toLongLong();
    return actual == wanted;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    startFuzzing("eeprom_fuzzer", discard);
    return 0;
}

// A mutated image almost never keeps a checksum that holds, so half the mutants get theirs fixed:
// the import of real field values is fuzzed as much as the rejection of a bad image.
extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned int seed)
{
    size = LLVMFuzzerMutate(data, size, maxSize);
    if (size >= size_t(EepromData::Size) && seed % 2 == 0)
        qToLittleEndian(checksumOf(data), data + EepromData::Checksum);
    return size;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray image(reinterpret_cast<const char *>(data), int(size));
    CHECK(seed(image));
    const MessageCapture capture;
    const ProdInfo prodInfo;
    if (Sandbox::refusedFromOutside(capture.records()))
        return LLVMFuzzerTestOneInput(data, size);
    // The conversion creates the file, leaves nothing else behind and the partition read-only again.
    CHECK(Sandbox::isReadOnly());
    CHECK(Sandbox::files() == QStringList({QStringLiteral("eeprom"), QStringLiteral("settings.ini")}));
    CHECK(prodInfo.isDataValid());
    for (const Field &field : expectedFields(image, checksumHolds(image))) {
        const QVariant actual = prodInfo.property(field.property);
        if (!same(actual, field.value)) {
            QDebug(QtWarningMsg) << field.property << "is" << actual << "expected" << field.value;
            std::fprintf(stderr, "invariant broken: %s reloaded differs from the image\n", field.property);
            std::abort();
        }
    }
    return 0;
}
