// What the store promises where no command line can see it.
#include "prodinfo.h"
#include "support.h"

#include <QtTest>

class TestStore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (const QString whyNot = Sandbox::enter(); !whyNot.isEmpty())
            QSKIP(qPrintable(whyNot));
    }

    // A list property written and read by name, its value converted by toList.
    void listsInVariants()
    {
        QVERIFY(Sandbox::reset({{"settings.ini", "SuModel=66\n"}}));
        ProdInfo prodInfo;
        QVERIFY(prodInfo.setProperty("TelvarCalib1", QVariant::fromValue(QListOfInts{1, 2, 3, 4, 5})));
        QCOMPARE(prodInfo.property("TelvarCalib1").toList(), (QVariantList{1, 2, 3, 4, 5}));
    }

    // A refused image leaves the caller's buffer as it was. A partition that is only a directory is not
    // ready, even when it holds both files, and its image is not read.
    void refusedImage()
    {
        const QStringList files = {"/factory_data/eeprom", "/factory_data/settings.ini"};
        QVERIFY(Sandbox::reset({{"eeprom", QByteArray(256, '\0')}, {"settings.ini", ""}}));
        QByteArray buffer(256, 'x');
        uchar *image = reinterpret_cast<uchar *>(buffer.data());
        QVERIFY(!ProdInfo().readEEPROM(image));
        QCOMPARE(buffer, QByteArray(256, 'x'));
        QVERIFY(ProdInfo::isFactoryDataReady() && ::umount2("/factory_data", MNT_DETACH) == 0);
        for (const QString &file : files)
            QVERIFY(QFile(file).open(QIODevice::WriteOnly));
        QTest::ignoreMessage(QtDebugMsg, ": eeprom file is not ready.");
        QTest::ignoreMessage(QtWarningMsg, ": reading eeprom data failed.");
        const bool refused = !ProdInfo::isFactoryDataReady() && !ProdInfo().readEEPROM(image);
        std::for_each(files.cbegin(), files.cend(), [](const QString &file) { QFile::remove(file); });
        QVERIFY(refused);
    }
};

QTEST_GUILESS_MAIN(TestStore)
#include "tst_store.moc"
