#include "prodinfo.h"
#include "sandbox.h"

#include <QtTest>

#include <functional>
#include <optional>

namespace {

using Sandbox::Mount;
enum Fault { NoFault, NoCapability, Busy, Full };

// A call on the store, so that one table can drive the loader, the write cycle, the setters and the reset.
using Call = std::function<bool(ProdInfo &)>;
#define SET(...) Call([](ProdInfo &p) { return p.__VA_ARGS__; })
#define INIT(model) Call([](ProdInfo &p) { return Sandbox::setCameraModel(model), p.initSettings(); })
const Call load = SET(isDataValid());
const Call setModel = SET(setConfigParam("Identity/SuModel", 7));

// One text per value, so that every type compares alike: numbers in decimal (QVariant shows a quint8
// as a character), lists joined by commas, points as x:y.
QString shown(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<QListOfInts>())
        return shown(toVariantList(value.value<QListOfInts>()));
    if (value.userType() == QMetaType::UChar)
        return QString::number(value.toUInt());
    if (value.userType() == QMetaType::QPoint)
        return QStringLiteral("%1:%2").arg(value.toPoint().x()).arg(value.toPoint().y());
    if (!value.canConvert<QVariantList>() || value.userType() == QMetaType::QString)
        return value.toString();
    QStringList items;
    for (const QVariant &item : value.toList())
        items << shown(item);
    return items.join(QLatin1Char(','));
}

// The settings file as "key=value" items in key order.
QString contents()
{
    QStringList items;
    const QMap<QString, QVariant> settings = Sandbox::settings();
    for (auto it = settings.cbegin(); it != settings.cend(); ++it)
        items << it.key() + QLatin1Char('=') + shown(it.value());
    return items.join(QLatin1Char(' '));
}

// A fresh read-only partition holding `settings` (nothing if null), on which `fault` makes the
// remounts or the write fail for as long as this object lives.
struct Partition
{
    Partition(const char *settings, Fault fault)
    {
        QMap<QString, QByteArray> files;
        if (settings)
            files.insert("settings.ini", settings);
        // Two pages, both taken: the settings file and a filler.
        if (fault == Full)
            files.insert("filler", QByteArray(4096, 'x'));
        // The file that keeps the partition busy can only be opened while it is writable.
        ready = Sandbox::reset(files, fault == Busy ? Mount::Writable : Mount::ReadOnly,
                               fault == Full ? 8 : 1024);
        if (fault == Busy)
            hold.emplace();
        if (fault == NoCapability)
            noSysAdmin.emplace();
    }
    bool ready;
    std::optional<Sandbox::WriterHold> hold;
    std::optional<Sandbox::NoSysAdmin> noSysAdmin;
};

// Every property in index order with its type.
const char properties[] =
    "SuSerial:QString SuModel:uchar ImageSensorType:uchar ImageSensorSerial:uint "
    "ImageSensorTempCalibration:QListOfInts BoardTestStatus:uchar SuTestStatus:uchar "
    "CalibrationStatus:uchar DutStatus:uchar TelvarSensorPos:uchar TelvarCalib0:QListOfInts "
    "TelvarCalib1:QListOfInts TelvarCalib2:QListOfInts WifiRegion:uint UsbPower:uchar AuxDebug:uchar "
    "IrFilterType:uchar ShellColor:uchar TraceLevel:uint SucDebugEnableMask:uint ImxDebugEnableMask:uint "
    "AccelerometerCalibration:QListOfInts ProximityCalibration:QListOfInts ThumbwheelMode:uchar "
    "NrofTesselDACCalibrationValues:uchar TesselDACCalibration:QVariantList "
    "AccelerometerCalibrationExt:QListOfInts AccelerometerCalibrationTemp:int "
    "AccelerometerTemperatureCalib:QListOfInts";

// One call on a store constructed over a fresh partition, and what it leaves behind.
struct Case
{
    const char *name;
    const char *file; // the settings file to begin with; null: none
    Fault fault;
    Call call;
    bool result;
    const char *after;        // the whole file afterwards; null: unchanged
    const char *log = "";     // "type|function|message"; empty: nothing
    const char *members = ""; // "Property=value ..." afterwards
};

const Case loaderCases[] = {
    {"no file", nullptr, NoFault, load, false, nullptr, "", "SuSerial= WifiRegion=4294967295"},
    {"empty file", "", NoFault, load, true, nullptr, "",
     "SuSerial=0 WifiRegion=0 ProximityCalibration= TelvarCalib1=0,0,0,0,0"},
    {"malformed values", "TraceLevel=abc\nProximityCalibration=abc, 5\n[Identity]\nSuModel=300", NoFault,
     load, true, nullptr, "", "SuModel=44 TraceLevel=0 ProximityCalibration=0,5"},
};

// Without the privilege every remount is refused and reported: where nothing is logged under
// NoCapability, no remount was tried.
const char otherTool[] = "[Identity]\nSuModel=66\n[Other]\nKeep=1";
const Case writeCases[] = {
    {"written and reloaded", otherTool, NoFault, setModel, true, "Identity/SuModel=7 Other/Keep=1", "",
     "SuModel=7"},
    {"no settings file", nullptr, NoCapability, setModel, false, nullptr, "", "SuModel=0"},
    {"property write, no settings file", nullptr, NoCapability, SET(setProperty("SuSerial", "VQ1")), true,
     nullptr, "", "SuSerial="},
    {"writable remount refused", otherTool, NoCapability, setModel, false, nullptr,
     "warning|setConfigParam|: Failed to mount /factory_data as writable.", "SuModel=66"},
    {"read-only remount busy", otherTool, Busy, setModel, false, "Identity/SuModel=7 Other/Keep=1",
     "warning|setConfigParam|: Failed to mount /factory_data as read only.", "SuModel=66"},
    // Both remounts succeed, but the file cannot take the new value: only the setter finds out.
    {"partition full", otherTool, Full, SET(setSuModel(7)), false, nullptr, "", "SuModel=66"},
    {"file QSettings finds malformed", "[Identity\nSuModel=66", NoFault, SET(setSuModel(7)), true,
     "Identity/SuModel=7", "", "SuModel=7"},
    {"reload sees other writers", "[Identity]\nShellColor=2\nSuSerial=VQ1", NoFault,
     [](ProdInfo &p) {
         return Sandbox::rewrite({{"settings.ini", "[Identity]\nShellColor=9"}}) && p.setSuModel(7);
     },
     true, "Identity/ShellColor=9 Identity/SuModel=7", "", "ShellColor=9 SuSerial=0"},
};

const Case setterCases[] = {
    {"serial of 10", "", NoFault, SET(setSuSerial("VQ12345678")), true, "Identity/SuSerial=VQ12345678", ""},
    {"serial of 11", "", NoCapability, SET(setSuSerial("VQ123456789")), false, nullptr,
     "warning|setSuSerial|\"Serial can't be > 10 bytes\""},
    {"serial of 10 non-ASCII", "", NoFault, SET(setSuSerial("ÄÖÜäöüßéèê")), true,
     "Identity/SuSerial=ÄÖÜäöüßéèê", ""},
    {"empty serial", "", NoFault, SET(setSuSerial("")), true, "Identity/SuSerial=", "", "SuSerial="},
    {"accelerometer of 3", "", NoCapability, SET(setAccelerometerCalibration({1, 2, 3})), false, nullptr,
     "warning|setAccelerometerCalibration|10 values were expected but got QListOfInts(1,2,3)"},
    {"proximity empty", "", NoCapability, SET(setProximityCalibration({})), false, nullptr,
     "warning|setProximityCalibration|2 values were expected but got QListOfInts(empty)"},
    {"proximity of 3", "", NoCapability, SET(setProximityCalibration({1, 2, 3})), false, nullptr,
     "warning|setProximityCalibration|2 values were expected but got QListOfInts(1,2,3)"},
    {"image sensor of 5", "", NoFault, SET(setImageSensorTemperatureCalibration({-1, 0, 1, 2, 3})), true,
     "ImageSensor/TempCalibration=-1,0,1,2,3", ""},
    {"temperatures empty", "", NoFault, SET(setAccelerometerTemperatureCalib({})), true,
     "Accelerometer/TemperatureCalib=", ""},
    {"17 DAC points", "", NoCapability, SET(setTesselDACCalibration(QVector<QPoint>(17).toList())), false,
     nullptr, "warning|setTesselDACCalibration|Too many calibration points given. Got 17, max 16"},
    {"DAC point cut to 12 bits", "", NoFault, SET(setTesselDACCalibration(QList<QPoint>{{-1, 4096}})), true,
     "TesselDACCalibration=4095:0", ""},
    {"Telvar set 3", "", NoCapability, SET(setTelvarCalib(3, {1, 2, 3, 4, 5})), false, nullptr, ""},
    {"Telvar set 1 of six", "", NoFault, SET(setTelvarCalib(1, {1, 2, 3, 4, 5, 6})), true,
     "Telvar/Calib1_EquipmentId=1 Telvar/Calib1_ID0=2 Telvar/Calib1_ID1=3 Telvar/Calib1_ID2=4 "
     "Telvar/Calib1_Pos=5",
     ""},
    {"Telvar element 300", "", NoFault, SET(setTelvarCalib0({300, 2, 3, 4, 5})), false,
     "Telvar/Calib0_EquipmentId=300 Telvar/Calib0_ID0=2 Telvar/Calib0_ID1=3 Telvar/Calib0_ID2=4 "
     "Telvar/Calib0_Pos=5",
     "", "TelvarCalib0=44,2,3,4,5"},
    {"Telvar set of 3", "", NoCapability, SET(setTelvarCalib(2, {1, 2, 3})), false, nullptr,
     "warning|setTelvarCalib2|5 values were expected but got QListOfInts(1,2,3)"},
};

// The reset starts from a file with calibration data and a key of another tool; none of it stays.
const char oldFile[] = "[Identity]\nSuModel=7\n[Other]\nKeep=1\n[Telvar]\nCalib0_Pos=3";
const char common[] = "AuxDebug=1 Identity/IrFilterType=5 NrofTesselDACCalibrationValues=0";
const char model12[] = "AuxDebug=1 Identity/IrFilterType=5 Identity/SuModel=66 Identity/SuSerial=VQ00000000 "
                       "ImageSensor/Type=15 NrofTesselDACCalibrationValues=0";
const char model14[] = "AuxDebug=1 Identity/IrFilterType=5 Identity/SuModel=65 Identity/SuSerial=IQ00000000 "
                       "ImageSensor/Type=15 NrofTesselDACCalibrationValues=0";
const char unknown[] = "critical|initSettings|Unknown camera model!";
// Not reloaded: the object keeps what it loaded before the reset.
const Case initCases[] = {
    {"model 12", oldFile, NoFault, INIT("12"), true, model12, "", "SuModel=7"},
    {"model 14", oldFile, NoFault, INIT("14"), true, model14, "", "SuModel=7"},
    {"model 14, no file yet", nullptr, NoFault, INIT("14"), true, model14, "", "SuModel=0"},
    {"model 13", oldFile, NoFault, INIT("13"), true, common, unknown, "SuModel=7"},
    {"no model reported", oldFile, NoFault, INIT(""), true, common, unknown, "SuModel=7"},
    {"writable remount refused", oldFile, NoCapability, INIT("12"), false, nullptr,
     "warning|initSettings|: Failed to mount /factory_data as writable.", "SuModel=7"},
    {"read-only remount busy", oldFile, Busy, INIT("12"), false, model12,
     "warning|initSettings|: Failed to mount /factory_data as read only.", "SuModel=7"},
};

template <size_t N>
void addRows(const Case (&rows)[N])
{
    QTest::addColumn<const Case *>("row");
    for (const Case &row : rows)
        QTest::newRow(row.name) << &row;
}

} // namespace

Q_DECLARE_METATYPE(const Case *)

class TestSettingsStore : public QObject
{
    Q_OBJECT

    void run()
    {
        QFETCH(const Case *, row);
        Partition partition(row->file, row->fault);
        QVERIFY(partition.ready);
        MessageCapture capture;
        ProdInfo info;
        const QByteArray before = Sandbox::read("settings.ini");
        QCOMPARE(row->call(info), row->result);
        const QStringList log = QString(row->log).split(QLatin1Char('|'));
        QCOMPARE(capture.records(), (log.size() == 3 ? LogRecords{{log[0], log[1], log[2]}} : LogRecords()));
        // Unchanged means byte for byte: this process's QSettings could hold values the file never got.
        if (row->after)
            QCOMPARE(contents(), QString(row->after));
        else
            QCOMPARE(Sandbox::read("settings.ini"), before);
        QCOMPARE(Sandbox::isReadOnly(), row->fault != Busy);
        for (const QString &member : QString(row->members).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            const QString name = member.section(QLatin1Char('='), 0, 0);
            QCOMPARE(name + QLatin1Char('=') + shown(info.property(qPrintable(name))), member);
        }
    }

private slots:
    void initTestCase()
    {
        const QString whyNot = Sandbox::enter();
        if (!whyNot.isEmpty())
            QSKIP(qPrintable(whyNot));
    }

    void loader_data() { addRows(loaderCases); }
    void loader() { run(); }
    void writeCycle_data() { addRows(writeCases); }
    void writeCycle() { run(); }
    void setters_data() { addRows(setterCases); }
    void setters() { run(); }
    void initSettings_data() { addRows(initCases); }
    void initSettings() { run(); }

    void propertySystem()
    {
        const QMetaObject &meta = ProdInfo::staticMetaObject;
        QCOMPARE(meta.className(), "ProdInfo");
        // Properties and nothing else: no signals, slots, enumerations or class information.
        QCOMPARE(meta.methodCount() + meta.enumeratorCount() + meta.classInfoCount(), meta.methodOffset());
        QStringList declared;
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
            const QMetaProperty p = meta.property(i);
            declared << QLatin1String(p.name()) + QLatin1Char(':') + QLatin1String(p.typeName());
            QVERIFY(p.isReadable() && p.isWritable() && p.isDesignable() && p.isScriptable() && p.isStored());
            QVERIFY(!p.hasNotifySignal() && !p.isResettable() && !p.isUser() && !p.isConstant() &&
                    !p.isFinal());
        }
        QCOMPARE(declared.join(QLatin1Char(' ')), QString(properties));
    }

    // A store holding every key, copied property by property into one over an empty file: same file.
    void propertyWrites()
    {
        QFile everyKey(QStringLiteral(TEST_DATA_DIR "/print/every-value.ini"));
        QVERIFY(everyKey.open(QIODevice::ReadOnly));
        QVERIFY(Sandbox::reset({{"settings.ini", everyKey.readAll()}}));
        const QString expected = contents();
        const ProdInfo source;
        Partition partition("", NoFault);
        ProdInfo target;
        const QMetaObject &meta = ProdInfo::staticMetaObject;
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i)
            meta.property(i).write(&target, meta.property(i).read(&source));
        QCOMPARE(contents(), expected);
    }
};

QTEST_GUILESS_MAIN(TestSettingsStore)
#include "tst_settingsstore.moc"
