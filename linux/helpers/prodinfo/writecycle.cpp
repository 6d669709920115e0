#include "prodinfo.h"

#include "factorydata.h"
#include "log.h"

#include <QFileInfo>
#include <QSettings>
#include <QStorageInfo>

#include <sys/stat.h>

bool ProdInfo::setConfigParam(const QString &key, const QVariant &value)
{
    // Only the initialisation and the EEPROM import may create the file. A member without a key has none.
    if (key.isEmpty() || !QFileInfo::exists(FactoryData::settingsPath()))
        return false;
    // The file as the partition holds it now, under the lock: not as this run last read it, since another
    // run may have written it meanwhile. A file that cannot be read or decoded is not written from a guess,
    // and is found so before the partition is made writable.
    FactoryData::WriteWindow window(LOG_SITE);
    QByteArray file;
    if (window.read(file) != FactoryData::Read::Done)
        return false;
    if (const QString unkept = window.unkept(key); !unkept.isEmpty()) {
        LOG.warning(": Failed to keep %s.", qPrintable(unkept));
        return false;
    }
    const bool written =
        window.open() && window.write(file, [&](QSettings &settings) { settings.setValue(key, value); });
    // A failed read-only remount leaves the value in the file but the members as they were, so the
    // caller's comparison cannot mistake the write for a confirmed one; nor can a write that did not
    // reach the file, which would compare equal whenever the value read as missing is the one asked for,
    // nor a reload that could not read the file.
    return window.close() && written && reload();
}

bool ProdInfo::isFactoryDataReady()
{
    // The volume mounted wherever the mount point leads. Where the mount table does not list it (no /proc,
    // early in boot), a mount point is a directory on another device than the directory holding it.
    const QString mountPoint = FactoryData::canonicalMountPoint();
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    const auto listed = [&](const QStorageInfo &volume) { return volume.rootPath() == mountPoint; };
    struct stat point, parent;
    const bool mounted = std::none_of(volumes.cbegin(), volumes.cend(), listed)
                             ? ::stat(FACTORY_DATA, &point) == 0 &&
                                   ::stat(FACTORY_DATA "/..", &parent) == 0 && point.st_dev != parent.st_dev
                             : std::any_of(volumes.cbegin(), volumes.cend(), [&](const QStorageInfo &volume) {
                                   return listed(volume) && volume.isValid() && volume.isReady();
                               });
    if (!mounted)
        return false;
    return QFileInfo::exists(FactoryData::settingsPath()) || QFileInfo::exists(FactoryData::eepromPath());
}

template <typename T>
bool ProdInfo::store(const T &member, const T &value)
{
    // The member changes only through the reload, so equality means the file holds the value.
    return setConfigParam(keyOf(&member), writtenForm(value)) && member == value;
}

bool ProdInfo::setSuSerial(const QString &serial)
{
    if (serial.size() > SuSerialMaxLength) {
        LOG.warning() << QLatin1String("Serial can't be > 10 bytes");
        return false;
    }
    return store(m_SuSerial, serial);
}

bool ProdInfo::setSuModel(quint8 model) { return store(m_SuModel, model); }
bool ProdInfo::setImageSensorType(quint8 type) { return store(m_ImageSensorType, type); }
bool ProdInfo::setImageSensorSerial(uint serial) { return store(m_ImageSensorSerial, serial); }
bool ProdInfo::setBoardTestStatus(quint8 status) { return store(m_BoardTestStatus, status); }
bool ProdInfo::setSuTestStatus(quint8 status) { return store(m_SuTestStatus, status); }
bool ProdInfo::setCalibrationStatus(quint8 status) { return store(m_CalibrationStatus, status); }
bool ProdInfo::setDutStatus(quint8 status) { return store(m_DutStatus, status); }
bool ProdInfo::setTelvarSensorPos(quint8 pos) { return store(m_TelvarSensorPos, pos); }
bool ProdInfo::setWifiRegion(uint region) { return store(m_WifiRegion, region); }
bool ProdInfo::setUsbPower(quint8 power) { return store(m_UsbPower, power); }
bool ProdInfo::setAuxDebug(quint8 console) { return store(m_AuxDebug, console); }
bool ProdInfo::setIrFilterType(quint8 type) { return store(m_IrFilterType, type); }
bool ProdInfo::setShellColor(quint8 color) { return store(m_ShellColor, color); }
bool ProdInfo::setTraceLevel(uint level) { return store(m_TraceLevel, level); }
bool ProdInfo::setSucDebugEnableMask(uint mask) { return store(m_SucDebugEnableMask, mask); }
bool ProdInfo::setImxDebugEnableMask(uint mask) { return store(m_ImxDebugEnableMask, mask); }
bool ProdInfo::setThumbwheelMode(quint8 mode) { return store(m_ThumbwheelMode, mode); }

bool ProdInfo::setNrofTesselDACCalibrationValues(quint8 count)
{
    return store(m_NrofTesselDACCalibrationValues, count);
}

bool ProdInfo::setAccelerometerCalibrationTemp(const int &temperature)
{
    return store(m_AccelerometerCalibrationTemp, temperature);
}

bool ProdInfo::storeIntList(QListOfInts &member, const QListOfInts &values, int expectedCount,
                            const char *caller)
{
    if (expectedCount >= 0 && values.size() != expectedCount) {
        LOG_AT(caller).warning() << expectedCount << "values were expected but got" << values;
        return false;
    }
    return store(member, values);
}

bool ProdInfo::setImageSensorTemperatureCalibration(const QListOfInts &values)
{
    return storeIntList(m_ImageSensorTempCalibration, values, -1, __func__);
}

bool ProdInfo::setAccelerometerCalibration(const QListOfInts &values)
{
    return storeIntList(m_AccelerometerCalibration, values, AccelerometerCalibrationSize, __func__);
}

bool ProdInfo::setAccelerometerCalibrationExt(const QListOfInts &values)
{
    return storeIntList(m_AccelerometerCalibrationExt, values, AccelerometerCalibrationExtSize, __func__);
}

bool ProdInfo::setProximityCalibration(const QListOfInts &values)
{
    return storeIntList(m_ProximityCalibration, values, ProximityCalibrationSize, __func__);
}

bool ProdInfo::setAccelerometerTemperatureCalib(const QListOfInts &values)
{
    return storeIntList(m_AccelerometerTemperatureCalib, values, -1, __func__);
}

bool ProdInfo::setTesselDACCalibration(const QVariantList &points)
{
    return store(m_TesselDACCalibration, points);
}

bool ProdInfo::setTesselDACCalibration(const QList<QPoint> &points)
{
    if (points.size() > TesselDACCalibrationMaxPoints) {
        LOG.warning("Too many calibration points given. Got %d, max %d", points.size(),
                    TesselDACCalibrationMaxPoints);
        return false;
    }
    // The DACs take 12 bits.
    QList<QPoint> masked;
    masked.reserve(points.size());
    for (const QPoint &p : points)
        masked.append(QPoint(int(uint(p.x()) & 0xFFFu), int(uint(p.y()) & 0xFFFu)));
    return store(m_TesselDACCalibration, toVariantList(masked));
}

bool ProdInfo::storeTelvarCalib(int index, const QListOfInts &values, const char *caller)
{
    // A short set would leave old bytes beside new ones in the same calibration.
    if (values.size() < TelvarCalibrationSize) {
        LOG_AT(caller).warning() << TelvarCalibrationSize << "values were expected but got" << values;
        return false;
    }
    TelvarCalibration &record = m_TelvarCalib[index];
    quint8 *fields[TelvarCalibrationSize] = {&record.EquipmentId, &record.Id0, &record.Id1, &record.Id2,
                                             &record.Pos};
    // Five separate cycles, each attempted whatever the one before it did.
    for (int i = 0; i < TelvarCalibrationSize; ++i)
        setConfigParam(keyOf(fields[i]), values.at(i));
    // Values that were not read back are no confirmation, even where they equal the ones asked for.
    return m_DataValid && telvarCalib(index) == values.mid(0, TelvarCalibrationSize);
}

bool ProdInfo::setTelvarCalib0(const QListOfInts &values) { return storeTelvarCalib(0, values, __func__); }
bool ProdInfo::setTelvarCalib1(const QListOfInts &values) { return storeTelvarCalib(1, values, __func__); }
bool ProdInfo::setTelvarCalib2(const QListOfInts &values) { return storeTelvarCalib(2, values, __func__); }

bool ProdInfo::setTelvarCalib(int index, QList<quint8> values)
{
    QListOfInts list;
    for (int i = 0; i < qMin(values.size(), TelvarCalibrationSize); ++i)
        list.append(values.at(i));
    switch (index) {
    case 0:
        return setTelvarCalib0(list);
    case 1:
        return setTelvarCalib1(list);
    case 2:
        return setTelvarCalib2(list);
    default:
        return false;
    }
}
