#include "prodinfo.h"

#include "factorydata.h"
#include "log.h"

#include <productinfo.h>

#include <QFile>
#include <QSettings>

bool ProdInfo::initSettings()
{
    if (!FactoryData::remount(FactoryData::Access::Writable, __func__))
        return false;
    {
        // Removing the file clears it as QSettings::clear() would, without first decoding values that
        // Qt may not be able to decode: a reset must repair any file. clear() still empties a file that
        // could not be removed.
        QFile::remove(FactoryData::settingsPath());
        QSettings settings(FactoryData::settingsPath(), QSettings::IniFormat);
        settings.clear();

        // 255 stays when the platform cannot tell the model.
        Version::kroProductInfo info = {0, 255};
        Version::productInfo(&info);
        switch (info.cameraModel) {
        case 12:
            settings.setValue(QStringLiteral("Identity/SuSerial"), QStringLiteral("VQ00000000"));
            settings.setValue(QStringLiteral("Identity/SuModel"), 66);
            settings.setValue(QStringLiteral("ImageSensor/Type"), 15);
            break;
        case 14:
            settings.setValue(QStringLiteral("Identity/SuSerial"), QStringLiteral("IQ00000000"));
            settings.setValue(QStringLiteral("Identity/SuModel"), 65);
            settings.setValue(QStringLiteral("ImageSensor/Type"), 15);
            break;
        default:
            LOG.critical("Unknown camera model!");
            break;
        }
        settings.setValue(QStringLiteral("AuxDebug"), 1);
        settings.setValue(QStringLiteral("Identity/IrFilterType"), 5);
        settings.setValue(QStringLiteral("NrofTesselDACCalibrationValues"), 0);
    } // destroying the settings object writes the file
    return FactoryData::remount(FactoryData::Access::ReadOnly, __func__);
}
