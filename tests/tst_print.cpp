#include "prodinfo.h"
#include "sandbox.h"

#include <QtTest>

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// "1, 2, ..., count", a list as the settings file spells it; `item` shapes each element.
QByteArray listOf(int count, const char *item = "%1")
{
    QStringList items;
    for (int i = 1; i <= count; ++i)
        items << QString::fromLatin1(item).arg(i);
    return items.join(", ").toLatin1();
}

// What print logs for a store over `settings` (no settings file if null).
LogRecords printed(const QByteArray &settings)
{
    Sandbox::reset(settings.isNull() ? QMap<QString, QByteArray>()
                                     : QMap<QString, QByteArray>{{"settings.ini", settings}});
    ProdInfo info;
    MessageCapture capture;
    info.print();
    return capture.records();
}

} // namespace

class TestPrint : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const QString whyNot = Sandbox::enter();
        if (!whyNot.isEmpty())
            QSKIP(qPrintable(whyNot));
    }

    // Every message, line by line, against a file of the expected lines.
    void layout_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<QString>("expected");
        QTest::newRow("sample") << readAll(SAMPLES_DIR "/settings.ini") << "sample.txt";
        QTest::newRow("no value a default")
            << readAll(TEST_DATA_DIR "/print/every-value.ini") << "every-value.txt";
        QTest::newRow("empty file") << QByteArray("") << "empty-file.txt";
        QTest::newRow("no settings file") << QByteArray() << "no-file.txt";
    }
    void layout()
    {
        QFETCH(QByteArray, settings);
        QFETCH(QString, expected);
        const LogRecords records = printed(settings);
        QCOMPARE(records.size(), 56);
        QStringList lines;
        for (const LogRecord &record : records) {
            QCOMPARE(record.type + QLatin1Char('|') + record.function, QStringLiteral("debug|print"));
            lines += record.message.split(QLatin1Char('\n'));
        }
        QStringList golden = QString::fromUtf8(readAll(TEST_DATA_DIR "/print/" + expected)).split('\n');
        golden.removeLast(); // the file ends with a line break
        QCOMPARE(lines, golden);
    }

    // When a list is shown, and how: the message's number, its line count and its last line.
    void lists_data()
    {
        QTest::addColumn<QByteArray>("settings");
        QTest::addColumn<int>("message");
        QTest::addColumn<int>("lines");
        QTest::addColumn<QString>("last");
        const QByteArray acc = "[Accelerometer]\nCalibration=", temps = "[Accelerometer]\nTemperatureCalib=";
        const QByteArray image = "[ImageSensor]\nTempCalibration=", count = "NrofTesselDACCalibrationValues=";
        const QByteArray points3 = "\nTesselDACCalibration=" + listOf(3, "@Point(%1 -%1)");
        const QByteArray points20 = "\nTesselDACCalibration=" + listOf(20, "@Point(%1 -%1)");
        const QString accInvalid = "AccelerometerCalibration:        - Invalid";
        const QString tempsInvalid = "AccelerometerTemperatureCalib:   - Invalid";
        const QString imageInvalid = "ImageSensorTempCalibration       - Invalid";
        const QString position3 = " - Position 3 x:      7 y:      8 z:";
        const QString none3 = "TesselDACCalibration pos  3:  (N/A)";
        QTest::newRow("accelerometer of 9") << acc + listOf(9) << 19 << 1 << accInvalid;
        QTest::newRow("accelerometer of 10") << acc + listOf(10) << 19 << 4 << position3 + "      9";
        QTest::newRow("accelerometer of 11") << acc + listOf(11) << 19 << 1 << accInvalid;
        QTest::newRow("wide value") << acc + "1, 2, 3, 4, 5, 6, 7, 8, -1234567, 10" << 19 << 4
                                    << position3 + " -1234567";
        QTest::newRow("temperatures of 6") << temps + listOf(6) << 56 << 1 << tempsInvalid;
        QTest::newRow("temperatures of 8")
            << temps + listOf(8) << 56 << 3 << " - Temp 2 t:      5 x:      6 y:      7 z:      8";
        QTest::newRow("temperatures of 10") << temps + listOf(10) << 56 << 1 << tempsInvalid;
        QTest::newRow("temperatures of 400")
            << temps + listOf(400) << 56 << 101 << " - Temp 100 t:    397 x:    398 y:    399 z:    400";
        QTest::newRow("image sensor of 5") << image + listOf(5) << 5 << 1 << imageInvalid;
        QTest::newRow("image sensor of 7") << image + listOf(7) << 5 << 1 << imageInvalid;
        QTest::newRow("proximity of 3")
            << "ProximityCalibration=" + listOf(3) << 20 << 1 << "ProximityCalibration:            - Invalid";
        // The count and the points are separate keys: the count may be below or above the points, or
        // above 16.
        QTest::newRow("DAC count 3 of 20 points") << count + "3" + points20 << 41 << 1 << none3;
        QTest::newRow("DAC count 5 of 3 points") << count + "5" + points3 << 41 << 1 << none3;
        QTest::newRow("DAC count 20 of 20 points")
            << count + "20" + points20 << 53 << 1 << "TesselDACCalibration pos 15:  16,-16";
    }
    void lists()
    {
        QFETCH(QByteArray, settings);
        QFETCH(int, message);
        QFETCH(int, lines);
        QFETCH(QString, last);
        const LogRecords records = printed(settings);
        QCOMPARE(records.size(), 56);
        const QString text = records.at(message - 1).message;
        QCOMPARE(text.count(QLatin1Char('\n')) + 1, lines);
        QCOMPARE(text.section(QLatin1Char('\n'), -1), last);
    }
};

QTEST_GUILESS_MAIN(TestPrint)
#include "tst_print.moc"
