#ifndef QLISTOFINTS_H
#define QLISTOFINTS_H

#include <QDebug>
#include <QList>
#include <QMetaType>
#include <QPoint>
#include <QVariant>

// Every integer calibration table travels as this list of 32-bit signed integers.
typedef QList<int> QListOfInts;

// Declared under its alias, so "QListOfInts" is the one name the meta-type system knows it by. The
// registration (on first use) also gives QVariant its sequential-iterable view, so a variant holding a
// list converts to a QVariantList.
Q_DECLARE_METATYPE(QListOfInts)

// The settings file keeps lists as variant lists: ints for the tables, points for the Tessel DAC points.
QVariantList toVariantList(const QListOfInts &list);
QVariantList toVariantList(const QList<QPoint> &points);

// Items that do not hold an int are converted; an item that does not convert gives 0.
QListOfInts toIntList(const QVariantList &values);

// "QListOfInts(10,-3,7)" or "QListOfInts(empty)". Leaves the stream in no-space mode.
QDebug operator<<(QDebug debug, const QListOfInts &list);

#endif // QLISTOFINTS_H
