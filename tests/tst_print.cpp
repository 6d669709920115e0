#include "prodinfo.h"
#include "sandbox.h"

#include <QtTest>

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Print's messages for a store over `settings`; one not logged as debug from print shows as its level and
// function.
QStringList printed(const QByteArray &settings)
{
    Sandbox::reset({{"settings.ini", settings}});
    ProdInfo info;
    MessageCapture capture;
    info.print();
    QStringList messages;
    for (const LogRecord &r : capture.records())
        messages << (r.type == "debug" && r.function == "print" ? r.message : r.type + '|' + r.function);
    return messages;
}

} // namespace

class TestPrint : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (const QString whyNot = Sandbox::enter(); !whyNot.isEmpty())
            QSKIP(qPrintable(whyNot));
    }

    // Every message, over NAME.ini, against NAME.txt (sample.ini is the shipped sample).
    void layout_data()
    {
        QTest::addColumn<QString>("name");
        for (const char *name : {"sample", "every-value", "empty-file"})
            QTest::newRow(name) << QString(name);
    }
    void layout()
    {
        QFETCH(QString, name);
        const QString path = TEST_DATA_DIR "/print/" + name;
        QCOMPARE(printed(readAll(path + ".ini")).join('\n') + '\n',
                 QString::fromUtf8(readAll(path + ".txt")));
    }

    // When a list is shown, and how: the last line of the message with the given number.
    void lists_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<int>("message");
        QTest::addColumn<QString>("last");
        const QByteArray acc = "[Accelerometer]\nCalibration=", temps = "[Accelerometer]\nTemperatureCalib=";
        const QString tempsInvalid = "AccelerometerTemperatureCalib:   - Invalid";
        QTest::newRow("accelerometer of 9")
            << acc + "1, 2, 3, 4, 5, 6, 7, 8, 9" << 19 << "AccelerometerCalibration:        - Invalid";
        QTest::newRow("accelerometer of 10, wide value") << acc + "1, 2, 3, 4, 5, 6, 7, 8, -1234567, 10" << 19
                                                         << " - Position 3 x:      7 y:      8 z: -1234567";
        QTest::newRow("temperatures of 10") << temps + "1, 2, 3, 4, 5, 6, 7, 8, 9, 10" << 56 << tempsInvalid;
        QTest::newRow("temperatures of 400") << temps + QByteArray("1, ").repeated(399) + "4" << 56
                                             << " - Temp 100 t:      1 x:      1 y:      1 z:      4";
        // The count and the points are separate keys: the count may be above the points stored.
        QTest::newRow("Tessel count 3 of 2 points")
            << QByteArray("NrofTesselDACCalibrationValues=3\nTesselDACCalibration=@Point(1 2), @Point(3 4)")
            << 40 << "TesselDACCalibration pos  2:  (N/A)";
    }
    void lists()
    {
        QFETCH(QByteArray, settings);
        QFETCH(int, message);
        QFETCH(QString, last);
        QCOMPARE(printed(settings).value(message - 1).section('\n', -1), last);
    }
};

QTEST_GUILESS_MAIN(TestPrint)
#include "tst_print.moc"
