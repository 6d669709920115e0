#include "prodinfo.h"

#include "factorydata.h"
#include "log.h"

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

// An integer list comes back from the file as the list of its items' texts. Converting each text as
// toIntList would convert it gives the same list without building a list of variants first, on every
// reload of every list key.
QListOfInts intListOf(const QVariant &value)
{
    if (value.userType() != QMetaType::QStringList)
        return toIntList(value.toList());
    const QStringList texts = value.toStringList();
    QListOfInts list;
    list.reserve(texts.size());
    for (const QString &text : texts)
        list.append(QVariant(text).toInt());
    return list;
}

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
        {QStringLiteral("Identity/SuSerial"), &m_SuSerial},
        {QStringLiteral("Identity/SuModel"), &m_SuModel},
        {QStringLiteral("ImageSensor/Type"), &m_ImageSensorType},
        {QStringLiteral("ImageSensor/Serial"), &m_ImageSensorSerial},
        {QStringLiteral("ImageSensor/TempCalibration"), &m_ImageSensorTempCalibration},
        {QStringLiteral("Status/BoardTestStatus"), &m_BoardTestStatus},
        {QStringLiteral("Status/SuTestStatus"), &m_SuTestStatus},
        {QStringLiteral("Status/CalibrationStatus"), &m_CalibrationStatus},
        {QStringLiteral("Status/DutStatus"), &m_DutStatus},
        {QStringLiteral("TelvarSensorPos"), &m_TelvarSensorPos},
        {QStringLiteral("Telvar/Calib0_EquipmentId"), &t[0].EquipmentId},
        {QStringLiteral("Telvar/Calib0_ID0"), &t[0].Id0},
        {QStringLiteral("Telvar/Calib0_ID1"), &t[0].Id1},
        {QStringLiteral("Telvar/Calib0_ID2"), &t[0].Id2},
        {QStringLiteral("Telvar/Calib0_Pos"), &t[0].Pos},
        {QStringLiteral("Telvar/Calib1_EquipmentId"), &t[1].EquipmentId},
        {QStringLiteral("Telvar/Calib1_ID0"), &t[1].Id0},
        {QStringLiteral("Telvar/Calib1_ID1"), &t[1].Id1},
        {QStringLiteral("Telvar/Calib1_ID2"), &t[1].Id2},
        {QStringLiteral("Telvar/Calib1_Pos"), &t[1].Pos},
        {QStringLiteral("Telvar/Calib2_EquipmentId"), &t[2].EquipmentId},
        {QStringLiteral("Telvar/Calib2_ID0"), &t[2].Id0},
        {QStringLiteral("Telvar/Calib2_ID1"), &t[2].Id1},
        {QStringLiteral("Telvar/Calib2_ID2"), &t[2].Id2},
        {QStringLiteral("Telvar/Calib2_Pos"), &t[2].Pos},
        {QStringLiteral("Identity/WifiRegion"), &m_WifiRegion},
        {QStringLiteral("UsbPower"), &m_UsbPower},
        {QStringLiteral("AuxDebug"), &m_AuxDebug},
        {QStringLiteral("Identity/IrFilterType"), &m_IrFilterType},
        {QStringLiteral("Identity/ShellColor"), &m_ShellColor},
        {QStringLiteral("TraceLevel"), &m_TraceLevel},
        {QStringLiteral("SucDebugEnableMask"), &m_SucDebugEnableMask},
        {QStringLiteral("ImxDebugEnableMask"), &m_ImxDebugEnableMask},
        {QStringLiteral("Accelerometer/Calibration"), &m_AccelerometerCalibration},
        {QStringLiteral("Accelerometer/CalibrationExt"), &m_AccelerometerCalibrationExt},
        {QStringLiteral("ProximityCalibration"), &m_ProximityCalibration},
        {QStringLiteral("ThumbwheelMode"), &m_ThumbwheelMode},
        {QStringLiteral("NrofTesselDACCalibrationValues"), &m_NrofTesselDACCalibrationValues},
        {QStringLiteral("TesselDACCalibration"), &m_TesselDACCalibration},
        {QStringLiteral("Accelerometer/CalibrationTemp"), &m_AccelerometerCalibrationTemp, false},
        {QStringLiteral("Accelerometer/TemperatureCalib"), &m_AccelerometerTemperatureCalib, false},
    }};
}

QString ProdInfo::keyOf(const void *member)
{
    for (const SettingsField &field : settingsFields()) {
        if (std::visit([](auto *m) -> const void * { return m; }, field.member) == member)
            return field.key;
    }
    Q_ASSERT_X(false, "keyOf", "a member without a key");
    return {};
}

void ProdInfo::loadSettings() { reload(); }

bool ProdInfo::reload()
{
    // No file: the members stay as they were.
    QByteArray file;
    const FactoryData::Read found = FactoryData::readSettings(file);
    if (found == FactoryData::Read::NoFile)
        return false;
    const bool read =
        found == FactoryData::Read::Done && FactoryData::parse(file, [this](const QSettings &settings) {
            assign([&settings](const QString &key, const QVariant &fallback) {
                return settings.value(key, fallback);
            });
        });
    if (!read) {
        // Said once, however many reloads of the run fail; the values are those of an empty file, never the
        // ones from before, which a setter would take for its value read back.
        if (!m_ReadFailed)
            LOG_AT("loadSettings").warning(": Failed to read %s.", SETTINGS_FILE);
        m_ReadFailed = true;
        assign([](const QString &, const QVariant &fallback) { return fallback; });
    }
    m_DataValid = read;
    return read;
}

void ProdInfo::assign(const std::function<QVariant(const QString &, const QVariant &)> &value)
{
    const QVariant zeroText(QStringLiteral("0"));
    for (const SettingsField &field : settingsFields()) {
        const QString &key = field.key;
        // Conversion flags are not consulted: what does not convert reads as 0, "" or an empty list.
        std::visit(Overloaded{
                       [&](QString *m) { *m = value(key, zeroText).toString(); },
                       [&](quint8 *m) { *m = quint8(value(key, zeroText).toUInt()); },
                       [&](uint *m) { *m = value(key, zeroText).toUInt(); },
                       [&](int *m) { *m = value(key, QString()).toInt(); },
                       [&](QListOfInts *m) { *m = intListOf(value(key, QVariant())); },
                       [&](QVariantList *m) { *m = value(key, QVariant()).toList(); },
                   },
                   field.member);
    }
}

QListOfInts ProdInfo::telvarCalib(int index) const
{
    const TelvarCalibration &t = m_TelvarCalib[index];
    return {t.EquipmentId, t.Id0, t.Id1, t.Id2, t.Pos};
}
