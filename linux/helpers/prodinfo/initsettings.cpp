#include "prodinfo.h"

#include "factorydata.h"
#include "log.h"

#include <productinfo.h>

#include <QFile>
#include <QSettings>

#include <new>

bool ProdInfo::initSettings()
{
    if (!FactoryData::remount(FactoryData::Access::Writable, LOG))
        return false;
    {
        // Cleared through the settings object, the file keeps its mode, and a kill leaves the old file or
        // the new one. clear() decodes every value first, and one that Qt cannot decode (a @Variant(...)
        // claiming two thousand million items) fails its allocation: such a file is emptied in place, which
        // keeps its mode too, and read again, so that a reset repairs any file.
        QSettings settings(FactoryData::settingsPath(), QSettings::IniFormat);
        try {
            settings.clear();
        } catch (const std::bad_alloc &) {
            QFile(FactoryData::settingsPath()).resize(0);
            settings.sync();
            settings.clear();
        }

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
    return FactoryData::remount(FactoryData::Access::ReadOnly, LOG);
}
