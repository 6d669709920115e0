#ifndef QLISTOFINTS_H
#define QLISTOFINTS_H

#include <QDebug>
#include <QList>
#include <QMetaType>
#include <QPoint>
#include <QVariant>

// Every integer calibration table travels as this list of 32-bit signed integers.
typedef QList<int> QListOfInts;

// The settings file keeps lists as variant lists: ints for the tables, points for the Tessel DAC points.
QVariantList toVariantList(const QListOfInts &list);
QVariantList toVariantList(const QList<QPoint> &points);

// Declared under its alias, so "QListOfInts" is the one name the meta-type system knows it by; registered
// the first time its id is needed, as Q_DECLARE_METATYPE would. Qt then gives a variant holding a list its
// sequential-iterable view, which value<QVariantList>() uses but QVariant::toList() does not: the
// conversion to a variant list is registered with the type.
QT_BEGIN_NAMESPACE
template <>
struct QMetaTypeId<QListOfInts>
{
    enum { Defined = 1 };
    static int qt_metatype_id()
    {
        static QBasicAtomicInt metatype_id = Q_BASIC_ATOMIC_INITIALIZER(0);
        if (const int id = metatype_id.loadAcquire())
            return id;
        const int newId =
            qRegisterMetaType<QListOfInts>("QListOfInts", reinterpret_cast<QListOfInts *>(quintptr(-1)));
        metatype_id.storeRelease(newId); // first: registering the converter asks for the id
        QMetaType::registerConverter<QListOfInts, QVariantList>(
            static_cast<QVariantList (*)(const QListOfInts &)>(toVariantList));
        return newId;
    }
};
QT_END_NAMESPACE

// Items that do not hold an int are converted; an item that does not convert gives 0.
QListOfInts toIntList(const QVariantList &values);

// "QListOfInts(10,-3,7)" or "QListOfInts(empty)". Leaves the stream in no-space mode.
QDebug operator<<(QDebug debug, const QListOfInts &list);

#endif // QLISTOFINTS_H
