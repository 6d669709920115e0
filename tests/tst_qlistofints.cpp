#include "qlistofints.h"

#include <QtTest>

class TestQListOfInts : public QObject
{
    Q_OBJECT

private slots:
    void debugText()
    {
        // The "!" shows that the stream stays in no-space mode after the list.
        const auto text = [](const QListOfInts &list) {
            QString out;
            QDebug(&out) << "got" << list << "!";
            return out;
        };
        QCOMPARE(text({}), QStringLiteral("got QListOfInts(empty)!"));
        QCOMPARE(text({5}), QStringLiteral("got QListOfInts(5)!"));
        QCOMPARE(text({10, -3, 7}), QStringLiteral("got QListOfInts(10,-3,7)!"));
    }

    void conversions()
    {
        // Strings as the settings file gives them, one not a number, and an int.
        QCOMPARE(toIntList({QStringLiteral("12"), QStringLiteral("x"), 7}), (QListOfInts{12, 0, 7}));
        QCOMPARE(QMetaType::typeName(qMetaTypeId<QListOfInts>()), "QListOfInts");
        QCOMPARE(QVariant::fromValue(QListOfInts{4, 5}).value<QVariantList>(), (QVariantList{4, 5}));
    }
};

QTEST_GUILESS_MAIN(TestQListOfInts)
#include "tst_qlistofints.moc"
