#ifndef FACTORYDATA_H
#define FACTORYDATA_H

#include "qlistofints.h"

#include <QMessageLogger>
#include <QString>
#include <QVariant>

// Where the production data lives on the camera.
namespace FactoryData {

inline QString mountPoint() { return QStringLiteral("/factory_data"); }
inline QString settingsPath() { return QStringLiteral("/factory_data/settings.ini"); }
inline QString eepromPath() { return QStringLiteral("/factory_data/eeprom"); }

enum class Access { Writable, ReadOnly };

// Remounts the factory partition. On failure logs the warning through `log`, which carries the file, line
// and name of the operation that asked, and returns false.
bool remount(Access access, const QMessageLogger &log);

} // namespace FactoryData

// The form in which each kind of value is handed to QSettings.
inline QVariant writtenForm(quint8 value) { return int(value); }
inline QVariant writtenForm(uint value) { return value; }
inline QVariant writtenForm(int value) { return value; }
inline QVariant writtenForm(const QString &value) { return value; }
inline QVariant writtenForm(const QListOfInts &value) { return toVariantList(value); }
inline QVariant writtenForm(const QVariantList &value) { return value; }

#endif // FACTORYDATA_H
