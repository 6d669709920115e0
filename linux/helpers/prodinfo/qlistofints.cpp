#include "qlistofints.h"

template <typename T>
static QVariantList variantsOf(const QList<T> &items)
{
    QVariantList values;
    values.reserve(items.size());
    for (const T &item : items)
        values.append(QVariant::fromValue(item));
    return values;
}

QVariantList toVariantList(const QListOfInts &list) { return variantsOf(list); }

QVariantList toVariantList(const QList<QPoint> &points) { return variantsOf(points); }

QListOfInts toIntList(const QVariantList &values)
{
    QListOfInts list;
    list.reserve(values.size());
    for (const QVariant &value : values)
        list.append(value.toInt());
    return list;
}

QDebug operator<<(QDebug debug, const QListOfInts &list)
{
    debug.nospace();
    if (list.isEmpty())
        return debug << "QListOfInts(empty)";
    debug << "QListOfInts(";
    for (int i = 0; i < list.size(); ++i) {
        if (i > 0)
            debug << ',';
        debug << list.at(i);
    }
    return debug << ')';
}
