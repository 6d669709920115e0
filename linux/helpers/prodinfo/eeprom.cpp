#include "prodinfo.h"

#include "factorydata.h"
#include "log.h"

#include <QFile>
#include <QSettings>
#include <QtEndian>

#include <cstring>

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
    QFile file(FactoryData::eepromPath());
    if (!isFactoryDataReady()) {
        LOG.debug() << ": eeprom file is not ready.";
        return false;
    }
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        LOG.debug() << ": Failed to open EEPROM file ="
                    << "/factory_data/eeprom";
        return false;
    }
    file.seek(0);
    if (file.read(reinterpret_cast<char *>(buffer), size) != size) {
        LOG.debug() << ": Failed to read entire struct from EEPROM data.";
        return false;
    }
    file.close();
    return true;
}

bool ProdInfo::readEEPROM(uchar *image)
{
    alignas(quint32) uchar buffer[EepromData::Size];
    if (!readEEPROMData(buffer, EepromData::Size)) {
        LOG.warning() << ": reading eeprom data failed.";
        m_DataValid = false;
        return false;
    }
    const quint32 stored = qFromLittleEndian<quint32>(buffer + EepromData::Checksum);
    if (!validateChecksum(reinterpret_cast<const quint32 *>(buffer), EepromData::ChecksumWords, stored)) {
        LOG.warning() << ": checksum validation of eeprom data failed. Memory must be initialized.";
        m_DataValid = false;
        return false;
    }
    m_DataValid = true;
    std::memcpy(image, buffer, EepromData::Size);
    return true;
}

void ProdInfo::unpackEEPROM()
{
    uchar image[EepromData::Size];
    if (!readEEPROM(image))
        return;

    const auto u16 = [&image](int offset) { return int(qFromLittleEndian<quint16>(image + offset)); };
    const auto s16 = [&image](int offset) { return int(qFromLittleEndian<qint16>(image + offset)); };
    const auto u32 = [&image](int offset) { return qFromLittleEndian<quint32>(image + offset); };
    const auto list = [](int offset, int count, auto read) {
        QListOfInts values;
        for (int i = 0; i < count; ++i)
            values.append(read(offset + 2 * i));
        return values;
    };

    m_SuSerial = QString::fromLatin1(reinterpret_cast<const char *>(image + EepromData::SuSerial), 10);
    m_SuModel = image[EepromData::SuModel];
    m_ImageSensorType = image[EepromData::ImageSensorType];
    m_ImageSensorSerial = u32(EepromData::ImageSensorSerial);
    m_ImageSensorTempCalibration = list(EepromData::ImageSensorTempCalibration, 6, u16);
    m_BoardTestStatus = image[EepromData::BoardTestStatus];
    m_SuTestStatus = image[EepromData::SuTestStatus];
    m_CalibrationStatus = image[EepromData::CalibrationStatus];
    m_DutStatus = image[EepromData::DutStatus];
    m_TelvarSensorPos = image[EepromData::TelvarSensorPos];
    for (int i = 0; i < 3; ++i) {
        // The identifier bytes are stored highest first.
        const uchar *block = image + EepromData::TelvarCalib + i * EepromData::TelvarBlockSize;
        m_TelvarCalib[i] = {block[0], block[3], block[2], block[1], block[4]};
    }
    m_WifiRegion = u32(EepromData::WifiRegion);
    m_UsbPower = image[EepromData::UsbPower];
    m_AuxDebug = image[EepromData::AuxDebug];
    m_IrFilterType = image[EepromData::IrFilterType];
    m_ShellColor = image[EepromData::ShellColor];
    m_TraceLevel = u32(EepromData::TraceLevel);
    m_SucDebugEnableMask = u32(EepromData::SucDebugEnableMask);
    m_ImxDebugEnableMask = u32(EepromData::ImxDebugEnableMask);
    m_AccelerometerCalibration = list(EepromData::AccelerometerCalibration, 10, s16);
    m_AccelerometerCalibrationExt = list(EepromData::AccelerometerCalibrationExt, 18, s16);
    m_ProximityCalibration = list(EepromData::ProximityCalibration, 2, s16);
    m_ThumbwheelMode = image[EepromData::ThumbwheelMode];
    m_NrofTesselDACCalibrationValues = image[EepromData::NrofTesselDACCalibrationValues];
    // All 16 points are kept, whatever the count says.
    m_TesselDACCalibration.clear();
    for (int k = 0; k < 16; ++k) {
        const int point = EepromData::TesselDACCalibration + 4 * k;
        m_TesselDACCalibration.append(QPoint(u16(point), u16(point + 2)));
    }
}

void ProdInfo::convertFromEepromToSettings()
{
    // An image that cannot be read or fails its checksum still yields a file, from the members as
    // they are.
    unpackEEPROM();
    FactoryData::WriteWindow window(LOG_SITE);
    if (!window.isOpen())
        return;
    window.write([this](QSettings &settings) {
        const auto fields = settingsFields();
        for (int i = 0; i < EepromFieldCount; ++i) {
            const QVariant value =
                std::visit([](auto *member) { return writtenForm(*member); }, fields[i].member);
            settings.setValue(fields[i].key, value);
        }
    });
    window.close();
}
