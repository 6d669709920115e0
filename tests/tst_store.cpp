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

    // A list in a variant converts to int variants, also when it comes from the property system, which
    // writes it to the file and reads it back.
    void listsInVariants()
    {
        const QVariant list = QVariant::fromValue(QListOfInts{1, -2, 3});
        QVERIFY(list.canConvert<QVariantList>());
        QCOMPARE(list.toList(), (QVariantList{1, -2, 3}));
        QVERIFY(Sandbox::reset({{"settings.ini", {}}}));
        ProdInfo prodInfo;
        QVERIFY(prodInfo.setProperty("TelvarCalib1", QVariant::fromValue(QListOfInts{1, 2, 3, 4, 5})));
        QCOMPARE(prodInfo.property("TelvarCalib1").toList(), (QVariantList{1, 2, 3, 4, 5}));
    }

    // No words give the seed, and a word equal to the seed cancels it.
    void checksumEdges()
    {
        QCOMPARE(ProdInfo::calculateChecksum(nullptr, 0), 0xDEADBEEFu);
        const quint32_le seed(0xDEADBEEF);
        QCOMPARE(ProdInfo::calculateChecksum(reinterpret_cast<const quint32 *>(&seed), 1), 0u);
    }

    // A refused image leaves the caller's buffer as it was. A partition that is only a directory is not
    // ready, even when it holds both files.
    void refusedImage()
    {
        const Sandbox::Files files = {{"settings.ini", {}}, {"eeprom", QByteArray(256, '\0')}};
        QVERIFY(Sandbox::reset(files));
        ProdInfo prodInfo;
        QByteArray buffer(256, 'x');
        QVERIFY(!prodInfo.readEEPROM(reinterpret_cast<uchar *>(buffer.data())));
        QCOMPARE(buffer, QByteArray(256, 'x'));
        QVERIFY(ProdInfo::isFactoryDataReady());
        QVERIFY(::umount2("/factory_data", MNT_DETACH) == 0);
        const auto removeFiles = qScopeGuard([&] {
            for (const QString &name : files.keys())
                QFile::remove("/factory_data/" + name);
        });
        for (const QString &name : files.keys())
            QVERIFY(QFile("/factory_data/" + name).open(QIODevice::WriteOnly));
        QVERIFY(!ProdInfo::isFactoryDataReady());
    }
};

QTEST_GUILESS_MAIN(TestStore)
#include "tst_store.moc"
