#include "prodinfo.h"

#include "factorydata.h"

#include <QFileInfo>
#include <QSettings>

namespace {

template <class... Ts>
struct Overloaded : Ts...
{
    using Ts::operator()...;
};
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

} // namespace

ProdInfo::ProdInfo(QObject *parent) : QObject(parent)
{
    // A camera that has only its EEPROM image gets its settings file from it, once.
    if (!QFileInfo::exists(FactoryData::settingsPath()) && QFileInfo::exists(FactoryData::eepromPath()))
        convertFromEepromToSettings();
    loadSettings();
}

ProdInfo::~ProdInfo() = default;

std::array<ProdInfo::SettingsField, ProdInfo::SettingsFieldCount> ProdInfo::settingsFields()
{
    TelvarCalibration *t = m_TelvarCalib;
    return {{
        {"Identity/SuSerial", &m_SuSerial},
        {"Identity/SuModel", &m_SuModel},
        {"ImageSensor/Type", &m_ImageSensorType},
        {"ImageSensor/Serial", &m_ImageSensorSerial},
        {"ImageSensor/TempCalibration", &m_ImageSensorTempCalibration},
        {"Status/BoardTestStatus", &m_BoardTestStatus},
        {"Status/SuTestStatus", &m_SuTestStatus},
        {"Status/CalibrationStatus", &m_CalibrationStatus},
        {"Status/DutStatus", &m_DutStatus},
        {"TelvarSensorPos", &m_TelvarSensorPos},
        {"Telvar/Calib0_EquipmentId", &t[0].EquipmentId},
        {"Telvar/Calib0_ID0", &t[0].Id0},
        {"Telvar/Calib0_ID1", &t[0].Id1},
        {"Telvar/Calib0_ID2", &t[0].Id2},
        {"Telvar/Calib0_Pos", &t[0].Pos},
        {"Telvar/Calib1_EquipmentId", &t[1].EquipmentId},
        {"Telvar/Calib1_ID0", &t[1].Id0},
        {"Telvar/Calib1_ID1", &t[1].Id1},
        {"Telvar/Calib1_ID2", &t[1].Id2},
        {"Telvar/Calib1_Pos", &t[1].Pos},
        {"Telvar/Calib2_EquipmentId", &t[2].EquipmentId},
        {"Telvar/Calib2_ID0", &t[2].Id0},
        {"Telvar/Calib2_ID1", &t[2].Id1},
        {"Telvar/Calib2_ID2", &t[2].Id2},
        {"Telvar/Calib2_Pos", &t[2].Pos},
        {"Identity/WifiRegion", &m_WifiRegion},
        {"UsbPower", &m_UsbPower},
        {"AuxDebug", &m_AuxDebug},
        {"Identity/IrFilterType", &m_IrFilterType},
        {"Identity/ShellColor", &m_ShellColor},
        {"TraceLevel", &m_TraceLevel},
        {"SucDebugEnableMask", &m_SucDebugEnableMask},
        {"ImxDebugEnableMask", &m_ImxDebugEnableMask},
        {"Accelerometer/Calibration", &m_AccelerometerCalibration},
        {"Accelerometer/CalibrationExt", &m_AccelerometerCalibrationExt},
        {"ProximityCalibration", &m_ProximityCalibration},
        {"ThumbwheelMode", &m_ThumbwheelMode},
        {"NrofTesselDACCalibrationValues", &m_NrofTesselDACCalibrationValues},
        {"TesselDACCalibration", &m_TesselDACCalibration},
        // Not in the EEPROM image.
        {"Accelerometer/CalibrationTemp", &m_AccelerometerCalibrationTemp},
        {"Accelerometer/TemperatureCalib", &m_AccelerometerTemperatureCalib},
    }};
}

QString ProdInfo::keyOf(const void *member)
{
    for (const SettingsField &field : settingsFields()) {
        if (std::visit([](auto *m) -> const void * { return m; }, field.member) == member)
            return QLatin1String(field.key);
    }
    Q_UNREACHABLE();
    return {};
}

void ProdInfo::loadSettings()
{
    if (!QFileInfo::exists(FactoryData::settingsPath()))
        return;

    const QSettings settings(FactoryData::settingsPath(), QSettings::IniFormat);
    const QVariant zeroText(QStringLiteral("0"));
    for (const SettingsField &field : settingsFields()) {
        const QString key = QLatin1String(field.key);
        // Conversion flags are not consulted: what does not convert reads as 0, "" or an empty list.
        std::visit(Overloaded{
                       [&](QString *m) { *m = settings.value(key, zeroText).toString(); },
                       [&](quint8 *m) { *m = quint8(settings.value(key, zeroText).toUInt()); },
                       [&](uint *m) { *m = settings.value(key, zeroText).toUInt(); },
                       [&](int *m) { *m = settings.value(key, QString()).toInt(); },
                       [&](QListOfInts *m) { *m = toIntList(settings.value(key).toList()); },
                       [&](QVariantList *m) { *m = settings.value(key).toList(); },
                   },
                   field.member);
    }
    m_DataValid = true;
}

QListOfInts ProdInfo::telvarCalib(int index) const
{
    const TelvarCalibration &t = m_TelvarCalib[index];
    return {t.EquipmentId, t.Id0, t.Id1, t.Id2, t.Pos};
}
