// The built prodconfig on a real factory partition: exit status, messages, the file, the partition, stdout.
#include "support.h"

#include <QtTest>

namespace {

const QString settingsPath = "/factory_data/settings.ini";
const QByteArray sample = contents(SAMPLES_DIR "/settings.ini"); // every key
const QByteArray erased(256, '\0');                              // an EEPROM image with a bad checksum

// A valid image: byte i is i + 48, so each field differs from its neighbours, but the Tessel count is 5.
QByteArray validImage()
{
    QByteArray bytes;
    quint32 sum = 0xDEADBEEF;
    for (int i = 0; i < 252; ++i)
        sum ^= quint32(quint8(bytes.append(char(i == 93 ? 5 : i + 48)).back())) << 8 * (i % 4);
    const quint32_le checksum(sum);
    return bytes + QByteArray(reinterpret_cast<const char *>(&checksum), 4);
}

#define D(text) "debug|main|" text "\n"
#define W(text) "warning|main|" text "\n"
#define C(text) "critical|main|" text "\n"
#define NOT_RW(function) "warning|" function "|: Failed to mount /factory_data as writable.\n"
#define NOT_RO(function) "warning|" function "|: Failed to mount /factory_data as read only.\n"
#define NOT_READ "warning|loadSettings|: Failed to read /factory_data/settings.ini.\n"
#define NOT_WRITTEN(function) "warning|" function "|: Failed to write /factory_data/settings.ini.\n"
#define OUT_OF_RANGE C("Number of calibration points out of range (max 16)")
#define RESET "[General]\nAuxDebug=1\nNrofTesselDACCalibrationValues=0\n\n" // what every reset writes
#define MODEL_12 "[Identity]\nIrFilterType=5\nSuModel=66\nSuSerial=VQ00000000\n\n[ImageSensor]\nType=15\n"

// One run of the tool on a fresh partition: what it is given, and what it must leave.
struct Run
{
    // The file afterwards: the seed with these key=value lines (no groups), a whole file, or an image's line.
    QString args, log, file;
    int exitCode = 0;
    Fault fault = None;
    QByteArray settings = sample, eeprom = erased, out = {}, model = "12\n";
    QString prepare = {}; // a shell command run on the partition before the tool
};

void row(const char *name, const Run &run) { QTest::newRow(name) << run; }

} // namespace

Q_DECLARE_METATYPE(Run)

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (const QString whyNot = Sandbox::enter(); !whyNot.isEmpty())
            QSKIP(qPrintable(whyNot));
    }

    void runs_data()
    {
        QTest::addColumn<Run>("run");
        // Each option once with a value that it stores, given in reverse: the actions run in the fixed order.
        // A message without quotes or a second line is the announcement, followed by the value and "Updated".
        // clang-format off
        const char *const steps[][3] = {
            {"-s X", "Set serial to \"X\"", "SuSerial=X"},
            {"-c imx", "Set AUX console to \"imx\" value 2", "AuxDebug=2"},
            {"--su-model 300", "Set SU model \"300\"\nUpdated.", "SuModel=44"},
            {"-t 17", "Set image sensor type", "Type=17"},
            {"--image-sensor-serial 9", "Set image sensor serial", "Serial=9"},
            {"--image-sensor-calib 40000,-1", "Set image sensor calibration", "TempCalibration=40000, -1"},
            {"-b 7", "Set board test status", "BoardTestStatus=7"},
            {"--su-test-status 6", "Set SU test status", "SuTestStatus=6"},
            {"--calibration-status 5", "Set calibration status", "CalibrationStatus=5"},
            {"--dut-status 4", "Set DUT status", "DutStatus=4"},
            {"--telvar-pos 3", "Set Telvar sensor postion", "TelvarSensorPos=3"},
            {"--telvar-calib0 300,-1,0,255,9,77", "Set Telvar calibration",
             "Calib0_EquipmentId=44\nCalib0_ID0=255\nCalib0_ID1=0\nCalib0_ID2=255"},
            {"--telvar-calib1 1,2,3,4,5", "Set Telvar calibration",
             "Calib1_EquipmentId=1\nCalib1_ID0=2\nCalib1_ID1=3\nCalib1_ID2=4\nCalib1_Pos=5"},
            {"--telvar-calib2 6,7,8,9,10", "Set Telvar calibration",
             "Calib2_EquipmentId=6\nCalib2_ID0=7\nCalib2_ID1=8\nCalib2_ID2=9\nCalib2_Pos=10"},
            {"-w 20", "Set wifi region \"20\"\nWifi region updated.", "WifiRegion=20"},
            {"-p 0", "Set USB power", "UsbPower=0"},
            {"-i 3", "Set IR filter type \"3\"\nIR filter type updated", "IrFilterType=3"},
            {"--shell-color 9", "Set shell color", "ShellColor=9"},
            {"--trace-level -1", "Set trace level", "TraceLevel=4294967295"},
            {"--suc-dbg-mask 16", "Set SUC debug mask", "SucDebugEnableMask=16"},
            {"--imx-dbg-mask 32", "Set iMX debug mask", "ImxDebugEnableMask=32"},
            {"--acc-calib 1,2,3,4,5,6,7,8,9,0", "Set accelerometer calibration",
             "Calibration=1, 2, 3, 4, 5, 6, 7, 8, 9, 0"},
            {"--acc-calib-ext 1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,7,-8", "Set accelerometer calibration extended",
             "CalibrationExt=1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1, 2, 3, 4, 5, 6, 7, -8"},
            {"--acc-calib-temp -5", "Set acceleration calibration temperature", "CalibrationTemp=251"},
            {"--acc-temp-calib 1,7", "Set acceleration temperature calibration", "TemperatureCalib=1, 7"},
            {"--prox-calib -7,8", "Set proximity calibration", "ProximityCalibration=-7, 8"},
            {"--thumbwheel-mode 00", "Set thumbwheel mode to 1\nUpdated", "ThumbwheelMode=1"}, // not "0"
            // The count of the points given overwrites it; 12 bits of each coordinate are kept.
            {"--nrof-tessel-dac-calib-values 9", "Set number of calibration points to 9\nUpdated", ""},
            {"--tessel-dac-calib 4095,4096,65535,0", "Setting number of calibration points to 2\nSetting "
             "Tessel DAC calibration points (QPoint(4095,4096), QPoint(65535,0))\nUpdated",
             "NrofTesselDACCalibrationValues=2\nTesselDACCalibration=@Point(4095 0), @Point(4095 0)"}};
        QStringList args, log, file;
        for (const auto &[option, messages, keys] : steps) {
            args.prepend(option);
            QString text = messages;
            if (!text.contains('"') && !text.contains('\n'))
                text += " \"" + QString(option).section(' ', 1) + "\"\nUpdated";
            log << text.replace(QRegularExpression("(?m)^"), "debug|main|");
            file << keys;
        }
        row("every option", {args.join(' '), log.join('\n'), file.join('\n')});
        row("refused values, the run goes on", {"-s XQ123456789 --su-model abc --image-sensor-calib 1,2.5 "
            "--telvar-calib0 1,x --telvar-calib1 1,2 -i x --acc-calib 1,2,3 --acc-calib-ext 1,,3 "
            "--nrof-tessel-dac-calib-values a --imx-dbg-mask 0x10",
            D("Set serial to \"XQ123456789\"") "warning|setSuSerial|\"Serial can't be > 10 bytes\"\n"
            W("Failed to update serial number.") D("Set SU model \"abc\"") W("Not updated")
            D("Set image sensor calibration \"1,2.5\"") W("Failed to convert value to short \"2.5\"")
            W("Not updated") D("Set Telvar calibration \"1,x\"") W("Not updated") D("Set Telvar calibration "
            "\"1,2\"") "warning|setTelvarCalib1|5 values were expected but got QListOfInts(1,2)\n"
            W("Not updated") D("Set IR filter type \"x\"") W("Wrong input, expected number")
            D("Set iMX debug mask \"0x10\"") W("Not updated") D("Set accelerometer calibration \"1,2,3\"")
            "warning|setAccelerometerCalibration|10 values were expected but got QListOfInts(1,2,3)\n"
            W("Not updated") D("Set accelerometer calibration extended \"1,,3\"") D("Failed to convert input "
            "to short \"\"") W("Not updated") D("Set number of calibration points to 0") D("Updated"),
            "NrofTesselDACCalibrationValues=0"});
        row("acc-calib-temp not a number ends the run", {"--thumbwheel-mode 0 --acc-calib-temp x",
            D("Set acceleration calibration temperature \"x\"") W("Not updated"), "", 1});
        row("acc-temp-calib not a number ends the run", {"--su-model 7 --acc-temp-calib 1,x --prox-calib 1,2",
            D("Set SU model \"7\"") D("Updated.") D("Set acceleration temperature calibration \"1,x\"")
            D("Failed to convert input to int \"x\"") W("Not updated"), "SuModel=7", 1});
        row("count 17", {"--nrof-tessel-dac-calib-values 17 --tessel-dac-calib 1", OUT_OF_RANGE, "", 1});
        row("17 points", {"--tessel-dac-calib " + QString("1,").repeated(33) + "1", OUT_OF_RANGE, "", 1});
        row("odd number of values", {"--tessel-dac-calib 1,2,3",
            C("Odd number of values given. An even number of values (x-y pairs) must be given."), "", 1});
        row("point value not an unsigned short", {"--tessel-dac-calib 1,2,65536,4",
            C("Failed to convert value ('65536') to unsigned short."), "", 1});
        // The values are those in the file already, which a refused write must not confirm either.
        row("writable remount refused", {"--init --su-model 66 --image-sensor-serial 1234567 "
            "--thumbwheel-mode 1 --nrof-tessel-dac-calib-values 3 --tessel-dac-calib 1,2",
            NOT_RW("initSettings") D("Set SU model \"66\"") NOT_RW("setConfigParam") W("Not updated")
            D("Set image sensor serial \"1234567\"") NOT_RW("setConfigParam") W("Not updated")
            D("Set thumbwheel mode to 1") NOT_RW("setConfigParam") W("Not updated")
            D("Set number of calibration points to 3") NOT_RW("setConfigParam") D("Not updated")
            D("Setting number of calibration points to 1") NOT_RW("setConfigParam")
            C("Failed to set number of calibration points. Skipping update of calibration point values."),
            "", 1, NoSysAdmin});
        // A commit that misses an error, or a write made from a file that could not be read, confirms it.
        // Room for the new file and Qt's lock file beside it.
        row("two blocks left: enough for a whole file", {"-b 3", D("Set board test status \"3\"")
            D("Updated"), "BoardTestStatus=3", 0, TwoBlocks});
        // The file holds 1 already: the reload must not be taken for the write.
        row("no room left: nothing stored", {"--init -c suc -b 1", NOT_WRITTEN("initSettings")
            D("Set AUX console to \"suc\" value 1") W("Not updated") D("Set board test status \"1\"")
            W("Not updated"), "", 0, NoRoom});
        row("every sync fails: nothing stored", {"--init -b 1", NOT_WRITTEN("initSettings")
            D("Set board test status \"1\"") W("Not updated"), "", 0, SyncFails});
        row("every read fails: nothing written from a guess", {"-b 3", NOT_READ D("Set board test status \"3\"")
            W("Not updated"), "", 0, ReadFails});
        row("read-only remount refused: stored, not confirmed, left writable", {"--su-model 7",
            D("Set SU model \"7\"") NOT_RO("setConfigParam") W("Not updated"), "SuModel=7", 0, Busy});
        row("init: model 12, then a setter", {"--acc-calib-temp -1 --init", D("Set acceleration calibration "
            "temperature \"-1\"") D("Updated"), RESET "[Accelerometer]\nCalibrationTemp=255\n\n" MODEL_12});
        row("init: model 14, read-only remount refused", {"--init", NOT_RO("initSettings"), RESET
            "[Identity]\nIrFilterType=5\nSuModel=65\nSuSerial=IQ00000000\n\n[ImageSensor]\nType=15\n", 0,
            Busy, sample, erased, {}, "14\n"});
        row("init: unknown model", {"--init", "critical|initSettings|Unknown camera model!", RESET
            "[Identity]\nIrFilterType=5\n", 0, None, sample, erased, {}, "13\n"});
        // 2^31 items, which Qt cannot decode: a setter is refused, a reset repairs the file.
        const QByteArray undecodable = "[General]\nTraceLevel=@Variant(\\0\\0\\0\\t\\x7f\\xff\\xff\\xff)\n";
        row("undecodable file, a setter", {"--su-model 65", NOT_READ D("Set SU model \"65\"") W("Not updated"),
            "", 0, None, undecodable});
        row("undecodable file, a reset", {"--init --su-model 7", NOT_READ D("Set SU model \"7\"") D("Updated."),
            RESET + QString(MODEL_12).replace("=66", "=7"), 0, None, undecodable});
        // Only the image: the file is made from it; the print shows what was loaded, before the setter ran.
        row("EEPROM image, print", {"--su-model 7 --print", contents(TEST_DIR "/print.txt"), "SuModel=7", 0,
            None, {}, validImage()});
        row("EEPROM checksum fails: initial values", {"", "warning|readEEPROM|: checksum validation of "
            "eeprom data failed. Memory must be initialized.", "WifiRegion=4294967295", 0, None, {}, erased});
        // An image that cannot be read, unlike one that fails its checksum, leaves no file: the next start reads it.
        row("EEPROM short", {"", "debug|readEEPROMData|: Failed to read entire struct from EEPROM data.\n"
            "warning|readEEPROM|: reading eeprom data failed.", "", 0, None, {}, erased.left(255)});
        // No file: the setters make none nor report the image's value as stored; the print shows the image's.
        row("EEPROM, remount refused", {"--su-model 58 --print", NOT_RW("convertFromEepromToSettings") +
            QString(contents(TEST_DIR "/print.txt")).replace("\"7\"\ndebug|main|Updated.", "\"58\"\n"
            W("Not updated")), "", 0, NoSysAdmin, {}, validImage()});
        // Only regular files are read, and nothing waits: what cannot be read is said and never shown.
        row("a FIFO at the settings file", {"-b 3", NOT_READ D("Set board test status \"3\"") W("Not updated"),
            "", 0, None, {}, erased, {}, "12\n", "mkfifo settings.ini"});
        row("a directory at the settings file", {"--telvar-calib0 0,0,0,0,0", NOT_READ D("Set Telvar calibration "
            "\"0,0,0,0,0\"") W("Not updated"), "", 0, None, {}, erased, {}, "12\n", "mkdir settings.ini"});
        row("a FIFO at the image", {"", "debug|readEEPROMData|: Failed to open EEPROM file = /factory_data/eeprom\n"
            "warning|readEEPROM|: reading eeprom data failed.", "", 0, None, {}, {}, {}, "12\n", "mkfifo eeprom"});
        row("no room for the import: no file, and the next start imports", {"",
            NOT_WRITTEN("convertFromEepromToSettings"), "", 0, NoRoom, {}, validImage()});
        // A value nested deeper than a thread's usual stack goes is decoded, kept and written back.
        row("a value nested 40000 deep", {"--su-model 65 -b 4", D("Set SU model \"65\"") D("Updated.")
            D("Set board test status \"4\"") D("Updated"), "SuModel=65\nBoardTestStatus=4", 0, Bound,
            QByteArray(sample).replace("[Identity]\n", "[Identity]\nDeep=@Variant(" +
            QByteArray("\\0\\0\\0\\t\\0\\0\\0\\x1").repeated(40000) + "\\0\\0\\0\\x2\\0\\0\\0\\0)\n")});
        // A write changes the values and nothing else of the file: its readers, its attributes, its link, the
        // keys of other programs.
        row("a linked file with an ACL and attributes, held open", {"-b 3", D("Set board test status \"3\"")
            D("Updated"), "BoardTestStatus=3", 0, Reader, sample, erased, {}, "12\n", "mkdir config && mv settings.ini "
            "config && ln -s config/settings.ini . && setfacl -m u:1000:r,m::- settings.ini && setfattr -n user.test "
            "-v kept settings.ini && setfattr -n security.selinux -v u:object_r:factory_file:s0 settings.ini"});
        row("a value Qt Core cannot decode", {"--dut-status 2", D("Set DUT status \"2\"") "warning|unknown|QVariant::"
            "load: unable to load type 67.\nwarning|setConfigParam|: Failed to keep Ui/AccentColor.\n"
            W("Not updated"), "", 0, None, sample + "\n[Ui]\nAccentColor=@Variant(\\0\\0\\0\\x43\\x1\\xff\\xff\\0\\0"
            "\\0\\0\\0\\0\\0\\0)\n"});
        // Whatever the umask, a new file is for everyone to read.
        row("umask 0777", {"", "", "SuModel=58", 0, Umask, {}, validImage()});
        row("help", {"--help -t 7", "", "", 0, None, {}, validImage(), contents(TEST_DIR "/help.txt")});
        row("version", {"-v --init", "", "", 0, None, {}, validImage(), "Production Config Tool \n"});
        // clang-format on
    }
    void runs()
    {
        QFETCH(Run, run);
        if (run.fault >= SyncFails && !PRODCONFIG_FIU)
            QSKIP("fiu-run's library reaches neither an emulated nor a sanitized tool");
        QFile platform("/run/product-info/camera-model"); // read by the stand-in product-information library
        QVERIFY(platform.open(QIODevice::WriteOnly) && platform.write(run.model) && platform.flush());
        const Sandbox::Files seed{{"eeprom", run.eeprom}, {"settings.ini", run.settings}};
        const ToolRun result = runOn(seed, run.args.split(' ', Qt::SkipEmptyParts), run.fault, run.prepare);
        QCOMPARE(result.exitCode, run.exitCode);
        QCOMPARE(result.log, run.log.split('\n', Qt::SkipEmptyParts));
        QCOMPARE(Sandbox::isReadOnly(), run.fault != Busy);
        QCOMPARE(attributes(settingsPath), result.attributes);
        QCOMPARE(QFileInfo(settingsPath).isSymLink(), run.prepare.contains("ln -s"));
        // Read-only is all that a remount changes, and only of the partition.
        QCOMPARE(Sandbox::flags() & ~ST_RDONLY,
                 Sandbox::PartitionFlags | (Sandbox::bound ? 0 : ST_SYNCHRONOUS));
        QVERIFY(!(Sandbox::flags("/run/fs") & ST_RDONLY));
        QCOMPARE(QDir("/factory_data").entryList({"settings.ini.*"}, QDir::Files | QDir::Hidden),
                 QStringList());
        // Of the help, not the path the tool was started by, nor the lines of the parser's own options.
        static const QRegularExpression own(
            "(?m)^(Usage: .*|  (-h, --help|--help-all|-v, --version) .*(\n {43}.*)?)\n");
        QCOMPARE(QString(result.out).remove(own), run.out);
        const QString file = contents(settingsPath);
        QString expected = run.file.startsWith('[') ? run.file : QString(run.settings);
        for (const QString &pair : run.file.split('\n', Qt::SkipEmptyParts))
            expected.replace(
                QRegularExpression("(?m)^" + QRegularExpression::escape(pair.section('=', 0, 0)) + "=.*$"),
                pair);
        if (!run.settings.isNull()) {
            QCOMPARE(file, expected);
            QCOMPARE(QFile::permissions(settingsPath) & 0x7077, QFile::ReadOwner | QFile::WriteOwner);
            QCOMPARE(QFileInfo(settingsPath).ownerId(), 1000u);
        } else // no file, or the one made from the image, with its 39 keys
            QVERIFY(run.file.isEmpty() ? !QFileInfo(settingsPath).isFile()
                                       : file.count('=') == 39 && file.contains('\n' + run.file));
    }

    // At each write of a run in turn (a Telvar set is five, the Tessel points two) the tool, stopped at
    // random moments until it stands in that write's window, meets a signal that ends it, or SIGKILL.
    void faultsMidRun()
    {
        const QStringList args = QString("--init --telvar-calib0 1,2,3,4,5 --trace-level 0 "
                                         "--acc-calib 1,2,3,4,5,6,7,8,9,0 --tessel-dac-calib 1,2,3,4")
                                     .split(' ');
        const QStringList lines =
            QString("Calib0_EquipmentId=1|Calib0_ID0=2|Calib0_ID1=3|Calib0_ID2=4|Calib0_Pos=5|"
                    "TraceLevel=0|Calibration=1, 2, 3, 4, 5, 6, 7, 8, 9, 0|"
                    "NrofTesselDACCalibrationValues=2|TesselDACCalibration=@Point(1 2), @Point(3 4)")
                .split('|');
        const auto writesDone = [&](const QString &file) {
            return int(!file.contains("WifiRegion=")) + // the reset
                   int(std::count_if(lines.cbegin(), lines.cend(),
                                     [&](const QString &line) { return file.contains('\n' + line + '\n'); }));
        };
        for (int i = 0; i < qEnvironmentVariable("PRODCONFIG_FAULT_ROUNDS", "3").toInt() * 2 * 10; ++i) {
            // qemu's user mode and AddressSanitizer take an asynchronous SIGSEGV for their own: SIGABRT
            // there.
            static const int segv = PRODCONFIG_FIU ? SIGSEGV : SIGABRT;
            const int write = i / 2 % 10 + 1,
                      fault =
                          i % 2 ? SIGKILL : QVector<int>{SIGTERM, SIGUSR1, SIGALRM, segv, SIGABRT}[i / 2 % 5];
            ToolRun run;
            for (bool placed = false; !placed;) {
                QVERIFY(Sandbox::reset({{"settings.ini", sample}}));
                QProcess tool;
                start(tool, args);
                whileStopped(tool, [&] {
                    const int done = writesDone(contents(settingsPath));
                    if (done == write - 1 && !Sandbox::isReadOnly())
                        placed = placed || ::kill(tool.processId(), fault) == 0;
                    return placed || done >= write;
                });
                run = finish(tool);
                QVERIFY2(placed || writesDone(contents(settingsPath)) >= write, "the run ended early");
                // A read-only remount refused from outside (see Sandbox::remount): again.
                placed = placed && !run.log.join(' ').contains("as read only.");
            }
            const int done = writesDone(contents(settingsPath));
            QVERIFY2(done == write - 1 || done == write, qPrintable(contents(settingsPath)));
            QCOMPARE(run.exitCode, -1); // ended by the signal
            const QStringList kept("settings.ini");
            const auto files = [] { return QDir("/factory_data").entryList(QDir::Files | QDir::Hidden); };
            QVERIFY(Sandbox::isReadOnly() || fault == SIGKILL); // a fault remounts before the process dies
            if (fault != SIGKILL && fault != SIGSEGV && fault != SIGABRT)
                QCOMPARE(files(), kept);
            // What a killed run left, the next window removes.
            QProcess next;
            start(next, {"-b", "2"});
            QVERIFY(finish(next).log.endsWith("debug|main|Updated"));
            QCOMPARE(files(), kept);
        }
    }

    // A platform call that never returns holds no window open: the partition stays read-only meanwhile, and
    // other runs write.
    void blockingModel()
    {
        const QString model = "/run/product-info/camera-model";
        QFile::remove(model);
        QVERIFY(Sandbox::reset({{"settings.ini", sample}}) && ::mkfifo(qPrintable(model), 0600) == 0);
        QProcess init, other;
        start(init, {"--init"});
        QThread::msleep(200);
        start(other, {"-b", "3"});
        QVERIFY(finish(other).log.endsWith("debug|main|Updated"));
        QVERIFY(Sandbox::isReadOnly() && init.state() == QProcess::Running);
        init.kill();
        finish(init);
        QVERIFY(QFile::remove(model));
    }

    // Runs at once take turns at the partition, and none loses what another confirmed. A run stopped in its
    // window holds the next one up only so long, and that one stores nothing meanwhile.
    void concurrentRuns()
    {
        const QStringList args[] = {
            QString("--su-test-status 7 --calibration-status 7 --dut-status 7 -b 7").split(' '),
            QString("-p 7 --shell-color 7 --thumbwheel-mode 0 --telvar-pos 7").split(' ')};
        const QRegularExpression stored(
            "(?m)^((SuTestStatus|CalibrationStatus|DutStatus|BoardTestStatus|UsbPower|"
            "ShellColor|TelvarSensorPos)=7|ThumbwheelMode=0)$");
        for (int round = 0; round < 20; ++round) {
            QVERIFY(Sandbox::reset({{"settings.ini", sample}}));
            QProcess tools[2];
            start(tools[0], args[0]);
            start(tools[1], args[1]);
            const QStringList log = finish(tools[0]).log + finish(tools[1]).log;
            QVERIFY2(log.filter(QRegularExpression("\\|Updated$")).size() == 8, qPrintable(log.join('\n')));
            QCOMPARE(QString(contents(settingsPath)).count(stored), 8);
        }
        ToolRun run{};
        while (run.log.isEmpty()) { // until the run is caught in a window
            QVERIFY(Sandbox::reset({{"settings.ini", sample}}));
            QProcess stopped, waiting;
            start(stopped, args[0]);
            whileStopped(stopped, [&] {
                if (!Sandbox::isReadOnly())
                    start(waiting, {"-b", "8"}), run = finish(waiting);
                return !run.log.isEmpty();
            });
            QCOMPARE(finish(stopped).exitCode, 0);
        }
        QCOMPARE(run.log, QString(NOT_READ D("Set board test status \"8\"") W("Not updated"))
                              .split('\n', Qt::SkipEmptyParts));
        QVERIFY(contents(settingsPath).contains("BoardTestStatus=7"));
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_cli.moc"
