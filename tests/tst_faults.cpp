#include "sandbox.h"

#include <QtTest>

namespace {

// Twelve write cycles in one run, so that a kill at a random moment often lands inside one.
const QStringList writeHeavy =
    QString("--su-model 77 --board-test-status 2 --dut-status 5 --wifi-region 7 "
            "--trace-level 9 --telvar-calib0 11,12,13,14,15 --tessel-dac-calib 1,2,3,4")
        .split(' ');
const QMap<QString, QByteArray> seeded{{"settings.ini", [] {
                                            QFile sample(SAMPLES_DIR "/settings.ini");
                                            return sample.open(QIODevice::ReadOnly) ? sample.readAll() : "";
                                        }()}};

// The built tool started as runTool starts it, but left to the caller to wait for or to kill.
void start(QProcess &tool, const QStringList &arguments)
{
    QStringList command = toolCommand(arguments);
    tool.setStandardErrorFile(QProcess::nullDevice());
    tool.start(command.takeFirst(), command);
}

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT
    QMap<QString, QVariant> before, after; // the settings before and after a whole run of writeHeavy
    int fullRun = 0;                       // how long that run took (us)

private slots:
    void initTestCase()
    {
        const QString whyNot = Sandbox::enter();
        if (!whyNot.isEmpty())
            QSKIP(qPrintable(whyNot));
        QVERIFY(Sandbox::reset(seeded));
        before = Sandbox::settings();
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(runTool(writeHeavy).exitCode, 0);
        fullRun = int(clock.nsecsElapsed() / 1000);
        after = Sandbox::settings();
    }
    void init() { QVERIFY(Sandbox::reset(seeded)); }

    // After a kill at any moment the file holds, key by key, the old value or the new one.
    void killMidWrite()
    {
        const int runs = qEnvironmentVariable("PRODCONFIG_KILL_RUNS", "200").toInt();
        // The moment of the kill (us) is drawn from a window that starts as the whole run and closes in
        // on the writes: later after a kill before any write, earlier after one that came too late.
        int from = 0, to = fullRun, partial = 0, writable = 0;
        for (int i = 0; i < runs; ++i) {
            QVERIFY(Sandbox::reset(seeded));
            QProcess tool;
            start(tool, writeHeavy);
            QVERIFY(tool.waitForStarted());
            const int delay = QRandomGenerator::global()->bounded(from, qMax(to, from + 1));
            QThread::usleep(ulong(delay));
            tool.kill();
            QVERIFY(tool.waitForFinished());
            // Nothing puts the partition back; the next run would find it writable.
            if (!Sandbox::isReadOnly() && ++writable)
                QVERIFY(Sandbox::remount(Sandbox::Mount::ReadOnly));
            // Beside the file, only what QSettings leaves when killed while it writes: its lock file, and
            // the temporary file that was about to replace the settings file.
            const QStringList files = Sandbox::files();
            QCOMPARE(files.filter(QRegularExpression("^settings\\.ini(\\.lock|\\.\\w{6})?$")), files);
            bool parsed = false;
            const QMap<QString, QVariant> now = Sandbox::settings(&parsed);
            QVERIFY(parsed);
            QCOMPARE(now.keys(), after.keys());
            for (const QString &key : after.keys())
                QVERIFY2(now[key] == before[key] || now[key] == after[key], qPrintable(key));
            partial += now != before && now != after;
            (now == before ? from : to) = ((now == before ? from : to) + delay) / 2;
            if (to - from < fullRun / 10)
                from = qMax(0, from - fullRun / 10), to = qMin(fullRun, to + fullRun / 10);
        }
        qInfo("%d kills (%d part-way through the writes): partition left writable %d times", runs, partial,
              writable);
    }

    // A killed run's lock names a process that is gone, or is empty when the kill came between creating
    // and writing it. The first is taken over at once, the second only once 30 s old: late, but no hang.
    void staleLock()
    {
        // No process can have a number as high as the kernel's largest limit.
        const QByteArray gone = "4194304\nprodconfig\n" + QSysInfo::machineHostName().toUtf8() + '\n';
        for (const auto &[lock, limitMs] : {qMakePair(gone, 15000), qMakePair(QByteArray(), 60000)}) {
            // Written here, not through the sandbox, so that it is as fresh as a real one.
            QFile file("/factory_data/settings.ini.lock");
            QVERIFY(Sandbox::remount(Sandbox::Mount::Writable) && file.open(QIODevice::WriteOnly) &&
                    file.write(lock) == lock.size());
            file.close();
            QVERIFY(Sandbox::remount(Sandbox::Mount::ReadOnly));
            QProcess tool;
            start(tool, writeHeavy);
            QVERIFY2(tool.waitForFinished(limitMs) && tool.exitCode() == 0, lock.constData());
            QVERIFY(Sandbox::isReadOnly());
            QCOMPARE(Sandbox::files(), QStringList{"settings.ini"});
            QCOMPARE(Sandbox::settings(), after);
            QVERIFY(Sandbox::reset(seeded));
        }
    }

    // No room left: the write is reported as failed and the old file stays whole.
    void fullPartition()
    {
        QVERIFY(Sandbox::reset(seeded, Sandbox::Mount::Writable, 16));
        // The filler takes what space there is, then fails.
        QVERIFY(!Sandbox::rewrite({{"filler", QByteArray(64 * 1024, 'x')}}));
        QCOMPARE(QStorageInfo("/factory_data").bytesAvailable(), 0);
        QVERIFY(Sandbox::remount(Sandbox::Mount::ReadOnly));
        const ToolRun run = runTool({"--tessel-dac-calib", "1,2"});
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.records.contains({"critical", "main",
                                       "Failed to set number of calibration points. Skipping update of "
                                       "calibration point values."}),
                 run.stdErr.constData());
        QVERIFY(Sandbox::isReadOnly());
        QCOMPARE(Sandbox::files(), QStringList({"filler", "settings.ini"}));
        QCOMPARE(Sandbox::read("settings.ini"), seeded.first());
    }

    // Values no one should type, for every kind of option: the run still ends with 0 or 1.
    void hostileCommandLine_data()
    {
        QTest::addColumn<QString>("option");
        QTest::addColumn<QString>("value");
        // clang-format off
        const QList<QPair<const char *, QString>> values = {{"empty", ""}, {"lone comma", ","},
            {"huge", "-18446744073709551616"}, {"5000 digits", QString(5000, '7')},
            {"2500 values", QString("1,").repeated(2499) + '1'}, {"printf conversions", "%s%n%x%d%%%s%n"},
            {"non-ASCII", QString::fromUtf8("\u00c4\u00df\u20ac\U0001F600\u0301")},
            {"control characters", "1\n2\t\x1b[2J\x7f"}};
        for (const QString &option : QString("su-model wifi-region acc-calib-temp image-sensor-calib acc-calib "
                 "telvar-calib0 acc-temp-calib serial console thumbwheel-mode nrof-tessel-dac-calib-values "
                 "tessel-dac-calib").split(' '))
            for (const auto &[name, value] : values)
                QTest::addRow("%s, %s", qPrintable(option), name) << option << value;
        // clang-format on
    }
    void hostileCommandLine()
    {
        QFETCH(QString, option);
        QFETCH(QString, value);
        const ToolRun run = runTool({"--" + option, value});
        if (Sandbox::refusedFromOutside(run.records)) {
            QVERIFY(Sandbox::reset(seeded));
            return hostileCommandLine();
        }
        QVERIFY2(!run.crashed && (run.exitCode == 0 || run.exitCode == 1),
                 run.stdErr.right(2000).constData());
        QVERIFY(Sandbox::isReadOnly());
        QCOMPARE(Sandbox::files(), QStringList{"settings.ini"});
        bool parsed = false;
        Sandbox::settings(&parsed);
        QVERIFY(parsed);
    }
};

QTEST_GUILESS_MAIN(TestFaults)
#include "tst_faults.moc"
