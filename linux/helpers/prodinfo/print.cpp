#include "prodinfo.h"

#include "log.h"

namespace {

// The value column starts at 34 on every line.
constexpr int labelWidth = 32;

QString padded(const char *label, int width) { return QString::fromLatin1(label).leftJustified(width); }

void printLine(const QString &text) { QMessageLogger(__FILE__, __LINE__, "print").debug().noquote() << text; }

void printValue(const char *label, qint64 value)
{
    printLine(padded(label, labelWidth) + QLatin1Char(' ') + QString::number(value));
}

// Lists whose label is padded to 33 show their values, or the marker, right behind the label.
void printInline(const char *label, bool valid, const QString &values)
{
    printLine(padded(label, labelWidth + 1) + (valid ? values : QStringLiteral("- Invalid")));
}

// Lists laid out in blocks of `blockSize` values, one block per line below the label.
void printBlocks(const char *label, bool valid, const QListOfInts &values, int blockSize,
                 const char *blockText)
{
    QString text = padded(label, labelWidth);
    if (!valid) {
        printLine(text + QLatin1String(" - Invalid"));
        return;
    }
    // A list of ten shows three positions: the tenth value is not one.
    for (int k = 0; k < values.size() / blockSize; ++k) {
        QString block = QString::fromLatin1(blockText).arg(k + 1);
        for (int i = 0; i < blockSize; ++i)
            block = block.arg(values.at(k * blockSize + i), 6);
        text += block;
    }
    printLine(text);
}

} // namespace

void ProdInfo::print()
{
    printLine(padded("SuSerial:", labelWidth) + QLatin1Char(' ') + m_SuSerial);
    printValue("SuModel:", m_SuModel);
    printValue("ImageSensorType:", m_ImageSensorType);
    printValue("ImageSensorSerial:", m_ImageSensorSerial);

    QString temperatureCalibration;
    for (int value : m_ImageSensorTempCalibration)
        temperatureCalibration += QStringLiteral("%1,").arg(value);
    temperatureCalibration.chop(1);
    printInline("ImageSensorTempCalibration",
                m_ImageSensorTempCalibration.size() == ImageSensorTempCalibrationSize,
                temperatureCalibration);

    printValue("BoardTestStatus:", m_BoardTestStatus);
    printValue("SuTestStatus:", m_SuTestStatus);
    printValue("CalibrationStatus:", m_CalibrationStatus);
    printValue("DutStatus:", m_DutStatus);
    printValue("TelvarSensorPos:", m_TelvarSensorPos);
    printValue("WifiRegion:", m_WifiRegion);
    printValue("UsbPower:", m_UsbPower);
    printValue("AuxDebug:", m_AuxDebug);
    printValue("IrFilterType:", m_IrFilterType);
    printValue("ShellColor:", m_ShellColor);
    printValue("TraceLevel:", m_TraceLevel);
    printValue("SucDebugEnableMask:", m_SucDebugEnableMask);
    printValue("ImxDebugEnableMask:", m_ImxDebugEnableMask);

    printBlocks(
        "AccelerometerCalibration:", m_AccelerometerCalibration.size() == AccelerometerCalibrationSize,
        m_AccelerometerCalibration, 3, "\n - Position %1 x: %2 y: %3 z: %4");

    const bool proximityValid = m_ProximityCalibration.size() == ProximityCalibrationSize;
    printInline(
        "ProximityCalibration:", proximityValid,
        proximityValid
            ? QStringLiteral("(%1, %2)").arg(m_ProximityCalibration.at(0)).arg(m_ProximityCalibration.at(1))
            : QString());

    printValue("ThumbwheelMode      :", m_ThumbwheelMode);

    for (int i = 0; i < TelvarCalibrationSets; ++i) {
        const TelvarCalibration &t = m_TelvarCalib[i];
        const QByteArray prefix = "TelvarCalib" + QByteArray::number(i);
        printValue((prefix + "_EquipmentId:").constData(), t.EquipmentId);
        printValue((prefix + "_Id0:").constData(), t.Id0);
        printValue((prefix + "_Id1:").constData(), t.Id1);
        printValue((prefix + "_Id2:").constData(), t.Id2);
        printValue((prefix + "_Pos:").constData(), t.Pos);
    }

    printValue("Nrof TesselDACCalib values:", m_NrofTesselDACCalibrationValues);
    for (int pos = 0; pos < TesselDACCalibrationMaxPoints; ++pos) {
        // A count above the points stored has nothing to show either.
        if (pos >= m_NrofTesselDACCalibrationValues || pos >= m_TesselDACCalibration.size()) {
            LOG.debug("TesselDACCalibration pos %2d:  (N/A)", pos);
            continue;
        }
        const QPoint point = m_TesselDACCalibration.at(pos).toPoint();
        LOG.debug("TesselDACCalibration pos %2d:  %d,%d", pos, point.x(), point.y());
    }

    printBlocks("AccelerometerCalibrationExt:",
                m_AccelerometerCalibrationExt.size() == AccelerometerCalibrationExtSize,
                m_AccelerometerCalibrationExt, 3, "\n - Position %1 x: %2 y: %3 z: %4");
    printValue("AccelerometerCalibrationTemp:", m_AccelerometerCalibrationTemp);
    const int temperatures = m_AccelerometerTemperatureCalib.size();
    printBlocks("AccelerometerTemperatureCalib:", temperatures > 0 && temperatures % 4 == 0,
                m_AccelerometerTemperatureCalib, 4, "\n - Temp %1 t: %2 x: %3 y: %4 z: %5");
}
