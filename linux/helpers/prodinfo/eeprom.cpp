#include "prodinfo.h"

#include "factorydata.h"
#include "log.h"

#include <QFile>
#include <QSettings>
#include <QtEndian>

#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>

quint32 ProdInfo::calculateChecksum(const quint32 *words, uint count)
{
    quint32 checksum = 0xDEADBEEF;
    // Little-endian words on any host, and no alignment assumed of the buffer they came in.
    for (uint i = 0; i < count; ++i)
        checksum ^= qFromLittleEndian<quint32>(words + i);
    return checksum;
}

bool ProdInfo::validateChecksum(const quint32 *words, uint count, quint32 expected)
{
    return calculateChecksum(words, count) == expected;
}

bool ProdInfo::readEEPROMData(uchar *buffer, int size)
{
    if (!isFactoryDataReady()) {
        LOG.debug() << ": eeprom file is not ready.";
        return false;
    }
    // Only a regular file is opened, and without waiting: a FIFO or a device in its place holds no run up.
    const QByteArray path = QFile::encodeName(FactoryData::eepromPath());
    struct stat status;
    const int fd = ::stat(path.constData(), &status) == 0 && S_ISREG(status.st_mode)
                       ? ::open(path.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)
                       : -1;
    QFile file;
    if (fd < 0 || !file.open(fd, QIODevice::ReadOnly | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle)) {
        LOG.debug().noquote() << ": Failed to open EEPROM file =" << FactoryData::eepromPath();
        return false;
    }
    if (file.read(reinterpret_cast<char *>(buffer), size) != size) {
        LOG.debug() << ": Failed to read entire struct from EEPROM data.";
        return false;
    }
    return true;
}

bool ProdInfo::readEEPROM(uchar *image)
{
    EepromData data;
    if (!readEEPROMData(reinterpret_cast<uchar *>(&data), sizeof data)) {
        LOG.warning() << ": reading eeprom data failed.";
        m_ImageUnread = true;
        m_DataValid = false;
        return false;
    }
    constexpr uint words = offsetof(EepromData, Checksum) / sizeof(quint32);
    if (!validateChecksum(reinterpret_cast<const quint32 *>(&data), words, data.Checksum)) {
        LOG.warning() << ": checksum validation of eeprom data failed. Memory must be initialized.";
        m_DataValid = false;
        return false;
    }
    m_DataValid = true;
    std::memcpy(image, &data, sizeof data);
    return true;
}

void ProdInfo::unpackEEPROM()
{
    EepromData image;
    if (!readEEPROM(reinterpret_cast<uchar *>(&image)))
        return;

    const auto list = [](const auto &values) {
        QListOfInts list;
        for (const auto &value : values)
            list.append(value);
        return list;
    };
    m_SuSerial = QString::fromLatin1(image.SuSerial, sizeof image.SuSerial);
    m_SuModel = image.SuModel;
    m_ImageSensorType = image.ImageSensorType;
    m_ImageSensorSerial = image.ImageSensorSerial;
    m_ImageSensorTempCalibration = list(image.ImageSensorTempCalibration);
    m_BoardTestStatus = image.BoardTestStatus;
    m_SuTestStatus = image.SuTestStatus;
    m_CalibrationStatus = image.CalibrationStatus;
    m_DutStatus = image.DutStatus;
    m_TelvarSensorPos = image.TelvarSensorPos;
    for (int i = 0; i < TelvarCalibrationSets; ++i) {
        const EepromData::TelvarBlock &block = image.TelvarCalib[i];
        m_TelvarCalib[i] = {block.EquipmentId, block.Id0, block.Id1, block.Id2, block.Pos};
    }
    m_WifiRegion = image.WifiRegion;
    m_UsbPower = image.UsbPower;
    m_AuxDebug = image.AuxDebug;
    m_IrFilterType = image.IrFilterType;
    m_ShellColor = image.ShellColor;
    m_TraceLevel = image.TraceLevel;
    m_SucDebugEnableMask = image.SucDebugEnableMask;
    m_ImxDebugEnableMask = image.ImxDebugEnableMask;
    m_AccelerometerCalibration = list(image.AccelerometerCalibration);
    m_AccelerometerCalibrationExt = list(image.AccelerometerCalibrationExt);
    m_ProximityCalibration = list(image.ProximityCalibration);
    m_ThumbwheelMode = image.ThumbwheelMode;
    m_NrofTesselDACCalibrationValues = image.NrofTesselDACCalibrationValues;
    m_TesselDACCalibration.clear();
    for (const EepromData::Point &point : image.TesselDACCalibration)
        m_TesselDACCalibration.append(QPoint(point.x, point.y));
}

void ProdInfo::convertFromEepromToSettings()
{
    // An image that fails its checksum still yields a file, from the members as they are; one that cannot
    // be read yields none, and the next start reads it again: the read may fail for a reason that passes.
    unpackEEPROM();
    if (m_ImageUnread)
        return;
    FactoryData::WriteWindow window(LOG_SITE);
    if (!window.open()) {
        if (window.isBusy()) // a failed remount has said why
            LOG.warning(": Failed to write %s.", SETTINGS_FILE);
        return;
    }
    // Another run may have made the file since this one looked: its values are not overwritten. An import
    // that does not reach the partition leaves no file, and the next start imports again.
    struct stat file;
    if (::stat(SETTINGS_FILE, &file) != 0 && errno == ENOENT &&
        !window.write({}, [this](QSettings &settings) {
            for (const SettingsField &field : settingsFields()) {
                if (field.inEeprom)
                    settings.setValue(field.key,
                                      std::visit([](auto *m) { return writtenForm(*m); }, field.member));
            }
        }))
        LOG.warning(": Failed to write %s.", SETTINGS_FILE);
    window.close();
}
