#include "prodinfo.h"
#include "sandbox.h"

#include <QtTest>

namespace {

// Perm: the writable remount is refused (EPERM); Busy: the read-only one (EBUSY); Full: the write.
enum Fault { Ok, Perm, Busy, Full };

// A call on the store, so that one table drives the loader, the write cycle, the setters and the reset.
using Call = std::function<bool(ProdInfo &)>;
#define SET(...) Call([](ProdInfo &p) { return p.__VA_ARGS__; })
#define INIT(model) Call([](ProdInfo &p) { return Sandbox::setCameraModel(model), p.initSettings(); })
const Call load = SET(isDataValid());
const Call setModel = SET(setConfigParam("Identity/SuModel", 7));

// "Property=value": numbers in decimal (QVariant shows a quint8 as a character), lists joined by commas.
QString shown(const ProdInfo &info, const QString &name)
{
    const QVariant v = info.property(qPrintable(name));
    if (v.userType() == qMetaTypeId<QListOfInts>())
        return name + '=' + QVariant(v.value<QVariantList>()).toStringList().join(',');
    return name + '=' + (v.userType() == QMetaType::UChar ? QString::number(v.toUInt()) : v.toString());
}

// One call on a store constructed over a fresh read-only partition holding `file` (null: none), and what
// it leaves: the whole file (null: unchanged, or not checked when the call succeeds, as the setters
// compare what they reload), the message logged ("type|function|message") and
// members ("Property=value ...").
struct Case
{
    const char *name, *file;
    Fault fault;
    Call call;
    bool result;
    const char *after = nullptr, *log = "", *members = "";
};

// Where nothing is logged under Perm, no remount was tried.
const char otherTool[] = "[Identity]\nSuModel=66\n[Other]\nKeep=1",
           written[] = "[Identity]\nSuModel=7\n\n[Other]\nKeep=1\n";
// The reset starts from a file with calibration data and a key of another tool; none of it stays.
const char oldFile[] = "[Identity]\nSuModel=7\n[Other]\nKeep=1\n[Telvar]\nCalib0_Pos=3";
#define COMMON "[General]\nAuxDebug=1\nNrofTesselDACCalibrationValues=0\n\n[Identity]\nIrFilterType=5\n"
const char model12[] = COMMON "SuModel=66\nSuSerial=VQ00000000\n\n[ImageSensor]\nType=15\n";
const char model14[] = COMMON "SuModel=65\nSuSerial=IQ00000000\n\n[ImageSensor]\nType=15\n";
#define NOT_RW(function) "warning|" function "|: Failed to mount /factory_data as writable."
#define NOT_RO(function) "warning|" function "|: Failed to mount /factory_data as read only."
const char unknown[] = "critical|initSettings|Unknown camera model!";

const Case cases[] = {
    {"load: no file", nullptr, Ok, load, false, nullptr, "", "SuSerial= WifiRegion=4294967295"},
    {"load: empty file", "", Ok, load, true, nullptr, "", "SuSerial=0 WifiRegion=0 ProximityCalibration="},
    {"load: malformed values", "TraceLevel=abc\nProximityCalibration=abc, 5\n[Identity]\nSuModel=300", Ok,
     load, true, nullptr, "", "SuModel=44 TraceLevel=0 ProximityCalibration=0,5"},
    {"written and reloaded", otherTool, Ok, setModel, true, written, "", "SuModel=7"},
    {"no settings file", nullptr, Perm, setModel, false, nullptr, "", "SuModel=0"},
    {"writable remount refused", otherTool, Perm, setModel, false, nullptr, NOT_RW("setConfigParam"),
     "SuModel=66"},
    {"read-only remount busy", otherTool, Busy, setModel, false, written, NOT_RO("setConfigParam"),
     "SuModel=66"},
    // Both remounts succeed, but the file cannot take the new value: only the setter finds out.
    {"partition full", otherTool, Full, SET(setSuModel(7)), false, nullptr, "", "SuModel=66"},
    {"QSettings finds malformed", "[Identity\nSuModel=66", Ok, setModel, true, "[Identity]\nSuModel=7\n"},
    {"serial of 10", "", Ok, SET(setSuSerial("VQ12345678")), true},
    {"serial of 11", "", Perm, SET(setSuSerial("VQ123456789")), false, nullptr,
     "warning|setSuSerial|\"Serial can't be > 10 bytes\""},
    {"serial of 10 non-ASCII", "", Ok, SET(setSuSerial("ÄÖÜäöüßéèê")), true},
    {"empty serial", "", Ok, SET(setSuSerial("")), true, "[Identity]\nSuSerial=\n"},
    {"accelerometer of 3", "", Perm, SET(setAccelerometerCalibration({1, 2, 3})), false, nullptr,
     "warning|setAccelerometerCalibration|10 values were expected but got QListOfInts(1,2,3)"},
    {"17 DAC points", "", Perm, SET(setTesselDACCalibration(QVector<QPoint>(17).toList())), false, nullptr,
     "warning|setTesselDACCalibration|Too many calibration points given. Got 17, max 16"},
    {"DAC points cut to 12 bits", "", Ok, SET(setTesselDACCalibration(QList<QPoint>{{-1, 4096}, {7, 8}})),
     true, "[General]\nTesselDACCalibration=@Point(4095 0), @Point(7 8)\n"},
    {"Telvar set 3", "", Perm, SET(setTelvarCalib(3, {1, 2, 3, 4, 5})), false},
    {"Telvar set of six", "", Ok, SET(setTelvarCalib(1, {1, 2, 3, 4, 5, 6})), true},
    {"Telvar element 300", "", Ok, SET(setTelvarCalib0({300, 2, 3, 4, 5})), false,
     "[Telvar]\nCalib0_EquipmentId=300\nCalib0_ID0=2\nCalib0_ID1=3\nCalib0_ID2=4\nCalib0_Pos=5\n"},
    {"Telvar set of 3", "", Perm, SET(setTelvarCalib(2, {1, 2, 3})), false, nullptr,
     "warning|setTelvarCalib2|5 values were expected but got QListOfInts(1,2,3)"},
    // Not reloaded: the object keeps what it loaded before the reset.
    {"init: model 12", oldFile, Ok, INIT("12"), true, model12, "", "SuModel=7"},
    {"init: model 14", oldFile, Ok, INIT("14"), true, model14, "", "SuModel=7"},
    {"init: model 13", oldFile, Ok, INIT("13"), true, COMMON, unknown, "SuModel=7"},
    {"init: writable remount refused", oldFile, Perm, INIT("12"), false, nullptr, NOT_RW("initSettings")},
};

} // namespace

Q_DECLARE_METATYPE(const Case *)

class TestSettingsStore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (const QString whyNot = Sandbox::enter(); !whyNot.isEmpty())
            QSKIP(qPrintable(whyNot));
    }

    void store_data()
    {
        QTest::addColumn<const Case *>("row");
        for (const Case &row : cases)
            QTest::newRow(row.name) << &row;
    }
    void store()
    {
        QFETCH(const Case *, row);
        // Full: two pages, both taken by the settings file and the filler.
        QMap<QString, QByteArray> files{{"filler", QByteArray(row->fault == Full ? 4096 : 0, 'x')}};
        if (row->file)
            files.insert("settings.ini", row->file);
        // The file that keeps the partition busy can only be opened while it is writable.
        QVERIFY(Sandbox::reset(files,
                               row->fault == Busy ? Sandbox::Mount::Writable : Sandbox::Mount::ReadOnly,
                               row->fault == Full ? 8 : 1024));
        const std::unique_ptr<Sandbox::WriterHold> hold(row->fault == Busy ? new Sandbox::WriterHold
                                                                           : nullptr);
        const std::unique_ptr<Sandbox::NoSysAdmin> noCap(row->fault == Perm ? new Sandbox::NoSysAdmin
                                                                            : nullptr);
        MessageCapture capture;
        ProdInfo info;
        const bool result = row->call(info);
        if (Sandbox::refusedFromOutside(capture.records()))
            return store();
        QCOMPARE(result, row->result);
        const QStringList log = QString(row->log).split('|');
        QCOMPARE(capture.records(), (log.size() == 3 ? LogRecords{{log[0], log[1], log[2]}} : LogRecords()));
        if (row->after || !row->result)
            QCOMPARE(Sandbox::read("settings.ini"), QByteArray(row->after ? row->after : row->file));
        QCOMPARE(Sandbox::isReadOnly(), row->fault != Busy);
        for (const QString &member : QString(row->members).split(' ', Qt::SkipEmptyParts))
            QCOMPARE(shown(info, member.section('=', 0, 0)), member);
    }

    // Every property in index order with its type; copied one by one from a store holding every key into
    // one over an empty file, through the setters: same file.
    void properties()
    {
        QFile file(QStringLiteral(TEST_DATA_DIR "/print/every-value.ini"));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray everyKey = file.readAll();
        QVERIFY(Sandbox::reset({{"settings.ini", everyKey}}));
        const ProdInfo source;
        QVERIFY(Sandbox::reset({{"settings.ini", ""}}));
        ProdInfo target;
        const QMetaObject &meta = ProdInfo::staticMetaObject;
        QStringList declared;
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
            declared << QLatin1String(meta.property(i).name()) + ':' + meta.property(i).typeName();
            QVERIFY(meta.property(i).write(&target, meta.property(i).read(&source)));
        }
        QCOMPARE(
            declared.join(' '),
            "SuSerial:QString SuModel:uchar ImageSensorType:uchar ImageSensorSerial:uint "
            "ImageSensorTempCalibration:"
            "QListOfInts BoardTestStatus:uchar SuTestStatus:uchar CalibrationStatus:uchar DutStatus:uchar "
            "TelvarSensorPos:uchar TelvarCalib0:QListOfInts TelvarCalib1:QListOfInts "
            "TelvarCalib2:QListOfInts "
            "WifiRegion:uint UsbPower:uchar AuxDebug:uchar IrFilterType:uchar ShellColor:uchar "
            "TraceLevel:uint "
            "SucDebugEnableMask:uint ImxDebugEnableMask:uint AccelerometerCalibration:QListOfInts "
            "ProximityCalibration:QListOfInts ThumbwheelMode:uchar NrofTesselDACCalibrationValues:uchar "
            "TesselDACCalibration:QVariantList AccelerometerCalibrationExt:QListOfInts "
            "AccelerometerCalibrationTemp:int AccelerometerTemperatureCalib:QListOfInts");
        QCOMPARE(Sandbox::read("settings.ini"), everyKey);
    }
};

QTEST_GUILESS_MAIN(TestSettingsStore)
#include "tst_settingsstore.moc"
