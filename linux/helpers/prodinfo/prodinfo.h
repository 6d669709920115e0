#ifndef PRODINFO_H
#define PRODINFO_H

#include "qlistofints.h"

#include <QObject>
#include <QPoint>
#include <QString>
#include <QVariantList>
#include <QtEndian>

#include <array>
#include <cstddef>
#include <functional>
#include <variant>

// One focus-sensor (Telvar) calibration set.
struct TelvarCalibration
{
    quint8 EquipmentId;
    quint8 Id0;
    quint8 Id1;
    quint8 Id2;
    quint8 Pos;
};

// How many values each calibration table holds, wherever it is stored, checked, imported or shown.
constexpr int SuSerialMaxLength = 10;
constexpr int ImageSensorTempCalibrationSize = 6;
constexpr int AccelerometerCalibrationSize = 10;
constexpr int AccelerometerCalibrationExtSize = 18;
constexpr int ProximityCalibrationSize = 2;
constexpr int TelvarCalibrationSets = 3;
constexpr int TelvarCalibrationSize = 5; // EquipmentId, Id0, Id1, Id2, Pos
constexpr int TesselDACCalibrationMaxPoints = 16;

// The 256-byte EEPROM image as it is stored: little-endian fields one after the other, readable by name on
// any host. Every field lies at its natural alignment, so no packing is needed; the asserts below hold the
// record to the stored layout on every compiler.
struct EepromData
{
    // A Telvar calibration stores its identifier bytes highest first.
    struct TelvarBlock
    {
        quint8 EquipmentId;
        quint8 Id2;
        quint8 Id1;
        quint8 Id0;
        quint8 Pos;
    };
    struct Point
    {
        quint16_le x;
        quint16_le y;
    };

    char SuSerial[SuSerialMaxLength]; // Latin-1, no terminator
    quint8 SuModel;
    quint8 ImageSensorType;
    quint32_le ImageSensorSerial;
    quint16_le ImageSensorTempCalibration[ImageSensorTempCalibrationSize];
    quint8 BoardTestStatus;
    quint8 SuTestStatus;
    quint8 CalibrationStatus;
    quint8 DutStatus;
    quint8 TelvarSensorPos;
    TelvarBlock TelvarCalib[TelvarCalibrationSets];
    quint32_le WifiRegion;
    quint8 UsbPower;
    quint8 AuxDebug;
    quint8 IrFilterType;
    quint8 ShellColor;
    quint32_le TraceLevel;
    quint32_le SucDebugEnableMask;
    quint32_le ImxDebugEnableMask;
    qint16_le AccelerometerCalibration[AccelerometerCalibrationSize];
    qint16_le ProximityCalibration[ProximityCalibrationSize];
    quint8 ThumbwheelMode;
    quint8 NrofTesselDACCalibrationValues;
    Point TesselDACCalibration[TesselDACCalibrationMaxPoints]; // all of them, whatever the count says
    qint16_le AccelerometerCalibrationExt[AccelerometerCalibrationExtSize];
    quint8 Reserved[58]; // not interpreted, only checksummed
    quint32_le Checksum; // over the words before it
};
static_assert(sizeof(EepromData) == 256 && sizeof(EepromData::TelvarBlock) == TelvarCalibrationSize);
static_assert(offsetof(EepromData, SuModel) == 10 && offsetof(EepromData, ImageSensorType) == 11 &&
              offsetof(EepromData, ImageSensorSerial) == 12 &&
              offsetof(EepromData, ImageSensorTempCalibration) == 16 &&
              offsetof(EepromData, BoardTestStatus) == 28 && offsetof(EepromData, SuTestStatus) == 29 &&
              offsetof(EepromData, CalibrationStatus) == 30 && offsetof(EepromData, DutStatus) == 31 &&
              offsetof(EepromData, TelvarSensorPos) == 32 && offsetof(EepromData, TelvarCalib) == 33 &&
              offsetof(EepromData, WifiRegion) == 48 && offsetof(EepromData, UsbPower) == 52 &&
              offsetof(EepromData, AuxDebug) == 53 && offsetof(EepromData, IrFilterType) == 54 &&
              offsetof(EepromData, ShellColor) == 55 && offsetof(EepromData, TraceLevel) == 56 &&
              offsetof(EepromData, SucDebugEnableMask) == 60 &&
              offsetof(EepromData, ImxDebugEnableMask) == 64 &&
              offsetof(EepromData, AccelerometerCalibration) == 68 &&
              offsetof(EepromData, ProximityCalibration) == 88 &&
              offsetof(EepromData, ThumbwheelMode) == 92 &&
              offsetof(EepromData, NrofTesselDACCalibrationValues) == 93 &&
              offsetof(EepromData, TesselDACCalibration) == 94 &&
              offsetof(EepromData, AccelerometerCalibrationExt) == 158 &&
              offsetof(EepromData, Reserved) == 194 && offsetof(EepromData, Checksum) == 252);

// The camera's production configuration: every value of /factory_data/settings.ini as a typed member
// and a property. Writes go through a short writable remount of the factory partition and are
// confirmed by reloading the file.
class ProdInfo : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString SuSerial MEMBER m_SuSerial WRITE setSuSerial)
    Q_PROPERTY(quint8 SuModel MEMBER m_SuModel WRITE setSuModel)
    Q_PROPERTY(quint8 ImageSensorType MEMBER m_ImageSensorType WRITE setImageSensorType)
    Q_PROPERTY(uint ImageSensorSerial MEMBER m_ImageSensorSerial WRITE setImageSensorSerial)
    Q_PROPERTY(QListOfInts ImageSensorTempCalibration MEMBER m_ImageSensorTempCalibration WRITE
                   setImageSensorTemperatureCalibration)
    Q_PROPERTY(quint8 BoardTestStatus MEMBER m_BoardTestStatus WRITE setBoardTestStatus)
    Q_PROPERTY(quint8 SuTestStatus MEMBER m_SuTestStatus WRITE setSuTestStatus)
    Q_PROPERTY(quint8 CalibrationStatus MEMBER m_CalibrationStatus WRITE setCalibrationStatus)
    Q_PROPERTY(quint8 DutStatus MEMBER m_DutStatus WRITE setDutStatus)
    Q_PROPERTY(quint8 TelvarSensorPos MEMBER m_TelvarSensorPos WRITE setTelvarSensorPos)
    Q_PROPERTY(QListOfInts TelvarCalib0 READ telvarCalib0 WRITE setTelvarCalib0)
    Q_PROPERTY(QListOfInts TelvarCalib1 READ telvarCalib1 WRITE setTelvarCalib1)
    Q_PROPERTY(QListOfInts TelvarCalib2 READ telvarCalib2 WRITE setTelvarCalib2)
    Q_PROPERTY(uint WifiRegion MEMBER m_WifiRegion WRITE setWifiRegion)
    Q_PROPERTY(quint8 UsbPower MEMBER m_UsbPower WRITE setUsbPower)
    Q_PROPERTY(quint8 AuxDebug MEMBER m_AuxDebug WRITE setAuxDebug)
    Q_PROPERTY(quint8 IrFilterType MEMBER m_IrFilterType WRITE setIrFilterType)
    Q_PROPERTY(quint8 ShellColor MEMBER m_ShellColor WRITE setShellColor)
    Q_PROPERTY(uint TraceLevel MEMBER m_TraceLevel WRITE setTraceLevel)
    Q_PROPERTY(uint SucDebugEnableMask MEMBER m_SucDebugEnableMask WRITE setSucDebugEnableMask)
    Q_PROPERTY(uint ImxDebugEnableMask MEMBER m_ImxDebugEnableMask WRITE setImxDebugEnableMask)
    Q_PROPERTY(QListOfInts AccelerometerCalibration MEMBER m_AccelerometerCalibration WRITE
                   setAccelerometerCalibration)
    Q_PROPERTY(QListOfInts ProximityCalibration MEMBER m_ProximityCalibration WRITE setProximityCalibration)
    Q_PROPERTY(quint8 ThumbwheelMode MEMBER m_ThumbwheelMode WRITE setThumbwheelMode)
    Q_PROPERTY(quint8 NrofTesselDACCalibrationValues MEMBER m_NrofTesselDACCalibrationValues WRITE
                   setNrofTesselDACCalibrationValues)
    Q_PROPERTY(QVariantList TesselDACCalibration MEMBER m_TesselDACCalibration WRITE setTesselDACCalibration)
    Q_PROPERTY(QListOfInts AccelerometerCalibrationExt MEMBER m_AccelerometerCalibrationExt WRITE
                   setAccelerometerCalibrationExt)
    Q_PROPERTY(int AccelerometerCalibrationTemp MEMBER m_AccelerometerCalibrationTemp WRITE
                   setAccelerometerCalibrationTemp)
    Q_PROPERTY(QListOfInts AccelerometerTemperatureCalib MEMBER m_AccelerometerTemperatureCalib WRITE
                   setAccelerometerTemperatureCalib)

public:
    explicit ProdInfo(QObject *parent = nullptr);
    ~ProdInfo() override;

    void loadSettings();
    bool isDataValid() const { return m_DataValid; }

    // The one-key write cycle, and whether the factory partition can be read.
    bool setConfigParam(const QString &key, const QVariant &value);
    static bool isFactoryDataReady();

    // Empties the settings file and writes the defaults of this camera model. Does not reload.
    bool initSettings();

    // Logs every value, one debug message each.
    void print();

    // Scalar setters: true when the value went to the file and came back unchanged.
    bool setSuSerial(const QString &serial);
    bool setSuModel(quint8 model);
    bool setImageSensorType(quint8 type);
    bool setImageSensorSerial(uint serial);
    bool setBoardTestStatus(quint8 status);
    bool setSuTestStatus(quint8 status);
    bool setCalibrationStatus(quint8 status);
    bool setDutStatus(quint8 status);
    bool setTelvarSensorPos(quint8 pos);
    bool setWifiRegion(uint region);
    bool setUsbPower(quint8 power);
    bool setAuxDebug(quint8 console);
    bool setIrFilterType(quint8 type);
    bool setShellColor(quint8 color);
    bool setTraceLevel(uint level);
    bool setSucDebugEnableMask(uint mask);
    bool setImxDebugEnableMask(uint mask);
    bool setThumbwheelMode(quint8 mode);
    bool setNrofTesselDACCalibrationValues(quint8 count);
    bool setAccelerometerCalibrationTemp(const int &temperature);

    // Calibration list setters.
    bool setImageSensorTemperatureCalibration(const QListOfInts &values);
    bool setAccelerometerCalibration(const QListOfInts &values);
    bool setAccelerometerCalibrationExt(const QListOfInts &values);
    bool setProximityCalibration(const QListOfInts &values);
    bool setAccelerometerTemperatureCalib(const QListOfInts &values);
    bool setTesselDACCalibration(const QVariantList &points);
    bool setTesselDACCalibration(const QList<QPoint> &points);
    bool setTelvarCalib0(const QListOfInts &values);
    bool setTelvarCalib1(const QListOfInts &values);
    bool setTelvarCalib2(const QListOfInts &values);
    bool setTelvarCalib(int index, QList<quint8> values);

    // The EEPROM image.
    static quint32 calculateChecksum(const quint32 *words, uint count);
    static bool validateChecksum(const quint32 *words, uint count, quint32 expected);
    bool readEEPROMData(uchar *buffer, int size);
    bool readEEPROM(uchar *image);
    void unpackEEPROM();
    void convertFromEepromToSettings();

private:
    // One key of the settings file and the member it feeds; the member's type gives the key's kind
    // (quint8 U8, uint U32, int S32, QString TEXT, QListOfInts INTLIST, QVariantList POINTLIST).
    using Member = std::variant<QString *, quint8 *, uint *, int *, QListOfInts *, QVariantList *>;
    struct SettingsField
    {
        QString key; // a literal: every reload reads all 41 keys, and a literal costs no conversion
        Member member;
        bool inEeprom = true; // what the EEPROM import writes
    };
    static constexpr int SettingsFieldCount = 41;
    std::array<SettingsField, SettingsFieldCount> settingsFields();
    // The key of a member of the table; empty for any other, and setConfigParam refuses an empty key.
    QString keyOf(const void *member);
    // loadSettings, telling whether the file could be read.
    bool reload();
    // Sets every member of the table from `value`, given its key and its default.
    void assign(const std::function<QVariant(const QString &, const QVariant &)> &value);

    // Writes `value` under the key of `member` and tells whether the reload brought it back.
    template <typename T>
    bool store(const T &member, const T &value);
    bool storeTelvarCalib(int index, const QListOfInts &values, const char *caller);
    bool storeIntList(QListOfInts &member, const QListOfInts &values, int expectedCount, const char *caller);

    QListOfInts telvarCalib(int index) const;
    QListOfInts telvarCalib0() const { return telvarCalib(0); }
    QListOfInts telvarCalib1() const { return telvarCalib(1); }
    QListOfInts telvarCalib2() const { return telvarCalib(2); }

    QString m_SuSerial;
    quint8 m_SuModel = 0;
    quint8 m_ImageSensorType = 0;
    uint m_ImageSensorSerial = 0;
    QListOfInts m_ImageSensorTempCalibration;
    quint8 m_BoardTestStatus = 0;
    quint8 m_SuTestStatus = 0;
    quint8 m_CalibrationStatus = 0;
    quint8 m_DutStatus = 0;
    quint8 m_TelvarSensorPos = 0;
    uint m_WifiRegion = 0xFFFFFFFF;
    quint8 m_UsbPower = 0;
    quint8 m_AuxDebug = 0;
    quint8 m_IrFilterType = 0;
    quint8 m_ShellColor = 0;
    uint m_TraceLevel = 0;
    uint m_SucDebugEnableMask = 0;
    uint m_ImxDebugEnableMask = 0;
    QListOfInts m_AccelerometerCalibration;
    QListOfInts m_ProximityCalibration;
    TelvarCalibration m_TelvarCalib[TelvarCalibrationSets] = {};
    bool m_DataValid = false;
    bool m_ReadFailed = false;  // the failure has been said
    bool m_ImageUnread = false; // the EEPROM image could not be read, as opposed to a failed checksum
    quint8 m_ThumbwheelMode = 0;
    quint8 m_NrofTesselDACCalibrationValues = 0;
    QVariantList m_TesselDACCalibration;
    QListOfInts m_AccelerometerCalibrationExt;
    int m_AccelerometerCalibrationTemp = 0;
    QListOfInts m_AccelerometerTemperatureCalib;
};

#endif // PRODINFO_H
