#include "qlistofints.h"

#include <QtTest>

class TestQListOfInts : public QObject
{
    Q_OBJECT

private slots:
    void debugText_data()
    {
        QTest::addColumn<QListOfInts>("list");
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << QListOfInts{} << "QListOfInts(empty)";
        QTest::newRow("one element, no separator") << QListOfInts{5} << "QListOfInts(5)";
        QTest::newRow("signs kept") << QListOfInts{-1, 0} << "QListOfInts(-1,0)";
        QTest::newRow("several") << QListOfInts{10, -3, 7} << "QListOfInts(10,-3,7)";
    }
    void debugText()
    {
        QFETCH(QListOfInts, list);
        QFETCH(QString, text);
        QString out;
        QDebug(&out) << list;
        QCOMPARE(out, text);
    }

    // The stream stays in no-space mode: what follows the list is not separated from it.
    void debugTextInAMessage()
    {
        QString out;
        QDebug(&out) << 10 << "values were expected but got" << QListOfInts{1, 2, 3} << "!";
        QCOMPARE(out, QStringLiteral("10 values were expected but got QListOfInts(1,2,3)!"));
    }

    void toIntList_data()
    {
        QTest::addColumn<QVariantList>("values");
        QTest::addColumn<QListOfInts>("expected");
        QTest::newRow("empty") << QVariantList{} << QListOfInts{};
        QTest::newRow("strings from the file, one not a number")
            << QVariantList{QStringLiteral("12"), QStringLiteral("x"), 7} << QListOfInts{12, 0, 7};
        QTest::newRow("ints unchanged") << QVariantList{INT_MIN, INT_MAX} << QListOfInts{INT_MIN, INT_MAX};
    }
    void toIntList()
    {
        QFETCH(QVariantList, values);
        QFETCH(QListOfInts, expected);
        QCOMPARE(::toIntList(values), expected);
    }

    void roundTrip()
    {
        const QListOfInts list{3, -2, 0, 65535};
        const QVariantList variants = toVariantList(list);
        QCOMPARE(variants.size(), list.size());
        for (const QVariant &v : variants)
            QCOMPARE(v.userType(), int(QMetaType::Int));
        QCOMPARE(::toIntList(variants), list);

        const QVariantList points = toVariantList(QList<QPoint>{{1, 2}, {3, 4}});
        QCOMPARE(points, (QVariantList{QPoint(1, 2), QPoint(3, 4)}));
    }

    void metaType()
    {
        QCOMPARE(QMetaType::typeName(qMetaTypeId<QListOfInts>()), "QListOfInts");
        // The template spelling is not a second name for it.
        QCOMPARE(QMetaType::type("QList<int>"), int(QMetaType::UnknownType));

        const QVariant variant = QVariant::fromValue(QListOfInts{4, 5, 6});
        QVERIFY(variant.canConvert<QVariantList>());
        // Through the sequential-iterable view that the registration brings.
        QCOMPARE(variant.value<QVariantList>(), (QVariantList{4, 5, 6}));
    }

    void equality()
    {
        QVERIFY(QListOfInts{} == QListOfInts{});
        QVERIFY(QListOfInts({1, 2}) != QListOfInts({2, 1}));
    }
};

QTEST_GUILESS_MAIN(TestQListOfInts)
#include "tst_qlistofints.moc"
