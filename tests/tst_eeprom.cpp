#include "prodinfo.h"
#include "sandbox.h"

#include <QtTest>

#include <fcntl.h>
#include <optional>
#include <sys/mount.h>
#include <unistd.h>

namespace {

using Texts = QMap<QString, QString>; // key or property -> value as text()

// Writes `values` little-endian, `width` bytes each, from `offset` on.
void put(QByteArray &image, int offset, int width, std::initializer_list<qint64> values)
{
    for (qint64 value : values)
        for (int i = 0; i < width; ++i)
            image[offset++] = char(value >> 8 * i);
}

const QString serial = QStringLiteral("AB12345") + QString(3, QChar(0)); // zero bytes are characters too

// Distinct values everywhere, so a field read from its neighbour's place shows; 0xA5 in the reserved bytes.
// The checksum is computed here, independently of the code under test.
const QByteArray goodImage = [] {
    using E = EepromData;
    QByteArray image = serial.toLatin1() + QByteArray(E::Size - 10, '\xA5');
    put(image, E::SuModel, 1, {66, 3}); // and the image sensor type
    put(image, E::ImageSensorSerial, 4, {0x89ABCDEF});
    put(image, E::ImageSensorTempCalibration, 2, {1, 0xFFFF, 3, 4, 5, 0x8000});
    put(image, E::BoardTestStatus, 1, {5, 6, 8, 200, 4}); // board, SU, calibration, DUT, Telvar position
    put(image, E::TelvarCalib, 1, {7, 1, 2, 3, 9, 10, 11, 12, 13, 14, 20, 21, 22, 23, 24});
    put(image, E::WifiRegion, 4, {2});
    put(image, E::UsbPower, 1, {15, 16, 17, 18}); // USB power, aux debug, IR filter, shell colour
    put(image, E::TraceLevel, 4, {0xFFFFFFFF, 0x80000001, 0x12345678}); // then the SUC and iMX masks
    put(image, E::AccelerometerCalibration, 2, {-1, 1, -32768, 32767, 5, 6, 7, 8, 9, 10});
    put(image, E::ProximityCalibration, 2, {-2, 300});
    put(image, E::ThumbwheelMode, 1, {19, 3}); // and a Tessel count of 3, yet all 16 points count
    for (int k = 0; k < 16; ++k)
        put(image, E::TesselDACCalibration + 4 * k, 2, {k, k == 15 ? 0xFFFF : 1000 + k});
    put(image, E::AccelerometerCalibrationExt, 2,
        {-1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18});
    quint32 sum = 0xDEADBEEF;
    for (int i = 0; i < E::Checksum; i += 4)
        sum ^= qFromLittleEndian<quint32>(image.constData() + i);
    put(image, E::Checksum, 4, {sum});
    return image;
}();

// File entries (strings) and properties (typed) as the same text: lists joined by commas, points x:y.
QString text(const QVariant &value)
{
    if (value.userType() == QMetaType::QPoint)
        return QStringLiteral("%1:%2").arg(value.toPoint().x()).arg(value.toPoint().y());
    if (value.userType() == QMetaType::QString || !value.canConvert<QVariantList>())
        return value.toString();
    QStringList items;
    for (const QVariant &item : value.value<QSequentialIterable>())
        items << text(item);
    return items.join(QLatin1Char(','));
}

const QString tessel = [] {
    QStringList points;
    for (int k = 0; k < 16; ++k)
        points << QStringLiteral("%1:%2").arg(k).arg(k == 15 ? 65535 : 1000 + k);
    return points.join(QLatin1Char(','));
}();
const QString temperature = "1,65535,3,4,5,32768", accel = "-1,1,-32768,32767,5,6,7,8,9,10",
              accelExt = "-1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18";

// clang-format off
// Every key of the file; no field of the image feeds the two accelerometer temperature keys.
const Texts goodFile{
    {"Identity/SuSerial", serial}, {"Identity/SuModel", "66"}, {"ImageSensor/Type", "3"},
    {"ImageSensor/Serial", "2309737967"}, {"ImageSensor/TempCalibration", temperature},
    {"Status/BoardTestStatus", "5"}, {"Status/SuTestStatus", "6"}, {"Status/CalibrationStatus", "8"},
    {"Status/DutStatus", "200"}, {"TelvarSensorPos", "4"},
    {"Telvar/Calib0_EquipmentId", "7"}, {"Telvar/Calib0_ID0", "3"}, {"Telvar/Calib0_ID1", "2"},
    {"Telvar/Calib0_ID2", "1"}, {"Telvar/Calib0_Pos", "9"},
    {"Telvar/Calib1_EquipmentId", "10"}, {"Telvar/Calib1_ID0", "13"}, {"Telvar/Calib1_ID1", "12"},
    {"Telvar/Calib1_ID2", "11"}, {"Telvar/Calib1_Pos", "14"},
    {"Telvar/Calib2_EquipmentId", "20"}, {"Telvar/Calib2_ID0", "23"}, {"Telvar/Calib2_ID1", "22"},
    {"Telvar/Calib2_ID2", "21"}, {"Telvar/Calib2_Pos", "24"},
    {"Identity/WifiRegion", "2"}, {"UsbPower", "15"}, {"AuxDebug", "16"}, {"Identity/IrFilterType", "17"},
    {"Identity/ShellColor", "18"}, {"TraceLevel", "4294967295"}, {"SucDebugEnableMask", "2147483649"},
    {"ImxDebugEnableMask", "305419896"}, {"Accelerometer/Calibration", accel},
    {"Accelerometer/CalibrationExt", accelExt}, {"ProximityCalibration", "-2,300"}, {"ThumbwheelMode", "19"},
    {"NrofTesselDACCalibrationValues", "3"}, {"TesselDACCalibration", tessel}};
// The members, one of every kind: the file above is written from them.
const Texts goodMembers{{"SuSerial", serial}, {"ImageSensorSerial", "2309737967"}, {"TelvarCalib2", "20,23,22,21,24"},
    {"ImageSensorTempCalibration", temperature}, {"WifiRegion", "2"}, {"AccelerometerCalibration", accel},
    {"TesselDACCalibration", tessel}, {"AccelerometerCalibrationTemp", "0"}};
// A rejected image leaves the initial values.
const Texts initialFile{{"Identity/SuSerial", ""}, {"Identity/WifiRegion", "4294967295"}, {"Identity/SuModel", "0"},
    {"Telvar/Calib0_ID0", "0"}, {"TesselDACCalibration", ""}};
// clang-format on

// Compares one by one, so a failure names the key.
template <typename Read>
void compareTexts(const Texts &expected, Read actual)
{
    for (auto it = expected.cbegin(); it != expected.cend(); ++it)
        QCOMPARE(it.key() + '=' + text(actual(it.key())), it.key() + '=' + it.value());
}

const LogRecord checksumFailed{"warning", "readEEPROM",
                               ": checksum validation of eeprom data failed. Memory must be initialized."};
const LogRecord readFailed{"warning", "readEEPROM", ": reading eeprom data failed."};
const LogRecord notWritable{"warning", "convertFromEepromToSettings",
                            ": Failed to mount /factory_data as writable."};

} // namespace

class TestEeprom : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const QString whyNot = Sandbox::enter();
        if (!whyNot.isEmpty())
            QSKIP(qPrintable(whyNot));
    }

    void import_data()
    {
        QTest::addColumn<QByteArray>("image");
        QTest::addColumn<LogRecords>("messages"); // none when the image is taken
        QTest::addColumn<Texts>("file");
        const LogRecords badSum{checksumFailed},
            cut{{"debug", "readEEPROMData", ": Failed to read entire struct from EEPROM data."}, readFailed};
        const auto flipped = [](int at) {
            return QByteArray(goodImage).replace(at, 1, QByteArray(1, ~goodImage[at]));
        };
        QTest::newRow("good") << goodImage << LogRecords{} << goodFile;
        QTest::newRow("trailing bytes ignored") << goodImage + "trailing" << LogRecords{} << goodFile;
        QTest::newRow("zeros, seed as checksum") << QByteArray(252, '\0') + "\xEF\xBE\xAD\xDE" << LogRecords{}
                                                 << Texts{{"Identity/SuSerial", QString(10, QChar(0))},
                                                          {"ImageSensor/TempCalibration", "0,0,0,0,0,0"}};
        QTest::newRow("all zero") << QByteArray(256, '\0') << badSum << initialFile;
        QTest::newRow("255 bytes") << goodImage.left(255) << cut << initialFile;
        QTest::newRow("empty") << QByteArray() << cut << initialFile;
        for (int at : {0, 93, 252})
            QTest::addRow("byte %d changed", at) << flipped(at) << badSum << initialFile;
    }
    void import()
    {
        QFETCH(QByteArray, image);
        QFETCH(LogRecords, messages);
        QFETCH(Texts, file);
        QVERIFY(Sandbox::reset({{"eeprom", image}}));
        MessageCapture capture;
        ProdInfo info;
        if (Sandbox::refusedFromOutside(capture.records()))
            return import();
        QCOMPARE(capture.records(), messages);
        QVERIFY(Sandbox::isReadOnly());
        bool parsed = false;
        const auto written = Sandbox::settings(&parsed);
        QVERIFY(parsed);
        QCOMPARE(written.size(), 39);
        compareTexts(file, [&](const QString &key) { return written.value(key); });
    }

    void existingSettingsFileLeavesImageUnread()
    {
        // Reading this image would log its checksum failure.
        QVERIFY(
            Sandbox::reset({{"eeprom", QByteArray(256, '\0')}, {"settings.ini", "[Identity]\nSuModel=5\n"}}));
        MessageCapture capture;
        ProdInfo info;
        QCOMPARE(capture.records(), LogRecords{});
        QCOMPARE(Sandbox::read("settings.ini"), "[Identity]\nSuModel=5\n");
        QCOMPARE(info.property("SuModel").toInt(), 5);
    }

    void remountFails_data()
    {
        QTest::addColumn<bool>("busy"); // the read-only remount fails; otherwise the writable one is refused
        QTest::addColumn<LogRecord>("message");
        QTest::newRow("writable refused") << false << notWritable;
        QTest::newRow("read-only busy") << true
                                        << LogRecord{"warning", "convertFromEepromToSettings",
                                                     ": Failed to mount /factory_data as read only."};
    }
    void remountFails()
    {
        QFETCH(bool, busy);
        QFETCH(LogRecord, message);
        QVERIFY(Sandbox::reset({{"eeprom", goodImage}},
                               busy ? Sandbox::Mount::Writable : Sandbox::Mount::ReadOnly));
        std::optional<Sandbox::WriterHold> hold;
        std::optional<Sandbox::NoSysAdmin> noSysAdmin;
        busy ? (void)hold.emplace() : (void)noSysAdmin.emplace();
        MessageCapture capture;
        ProdInfo info;
        noSysAdmin.reset();
        QCOMPARE(capture.records(), LogRecords{message});
        QCOMPARE(Sandbox::files().contains("settings.ini"), busy);
        QCOMPARE(Sandbox::isReadOnly(), !busy);
        // Refused, the members keep what the image gave them, with no file to reload from.
        compareTexts(goodMembers, [&](const QString &name) { return info.property(qPrintable(name)); });
    }

    // /factory_data as a plain directory. Unmounting the sandbox's tmpfs would expose the directory of
    // the real root file system, which no test may write to; instead the process changes its root to a
    // tmpfs of its own, with /proc so that the mount table is real, where /factory_data is an ordinary
    // directory holding a good image. Nothing outside that tmpfs is written.
    void plainDirectoryIsNotReady()
    {
        QVERIFY(QDir().mkpath("/run/own") && ::mount("own", "/run/own", "tmpfs", 0, "size=64k") == 0);
        QVERIFY(QDir().mkpath("/run/own/proc") && QDir().mkpath("/run/own/factory_data"));
        QVERIFY(::mount("proc", "/run/own/proc", "proc", 0, nullptr) == 0);
        QFile file("/run/own/factory_data/eeprom");
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(goodImage) == EepromData::Size && file.flush());
        struct RealRoot
        {
            const QString cwd = QDir::currentPath();
            // Through /proc: a user-mode emulator would take "/" for its target's root.
            const int fd = ::open("/proc/self/root", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            ~RealRoot()
            {
                QVERIFY(::fchdir(fd) == 0 && ::chroot(".") == 0 && QDir::setCurrent(cwd));
                ::umount2("/run/own", MNT_DETACH);
            }
        } realRoot;
        QVERIFY(::chroot("/run/own") == 0 && ::chdir("/") == 0);
        MessageCapture capture;
        ProdInfo info;
        QCOMPARE(capture.records(),
                 (LogRecords{
                     {"debug", "readEEPROMData", ": eeprom file is not ready."}, readFailed, notWritable}));
        QVERIFY(!ProdInfo::isFactoryDataReady());
    }

    void checksum()
    {
        // At an odd address: nothing promises the caller's buffer is aligned.
        const QByteArray bytes("\0\xEF\xBE\xAD\xDE\x01\0\0\0\0\0\0\x80", 13);
        const auto *words = reinterpret_cast<const quint32 *>(bytes.constData() + 1);
        QCOMPARE(ProdInfo::calculateChecksum(words, 0), 0xDEADBEEFu);
        QCOMPARE(ProdInfo::calculateChecksum(words, 1), 0u);
        QCOMPARE(ProdInfo::calculateChecksum(words, 3), 0x80000001u); // little-endian 1 and 0x80000000
    }
};

QTEST_GUILESS_MAIN(TestEeprom)
#include "tst_eeprom.moc"
