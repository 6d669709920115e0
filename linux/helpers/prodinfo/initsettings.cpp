#include "prodinfo.h"

#include "factorydata.h"
#include "log.h"

#include <productinfo.h>

#include <QFile>
#include <QSettings>

#include <new>

namespace {

// What a reset writes for each known camera model; other models get none of these three.
struct ModelDefaults
{
    quint32 cameraModel;
    const char *suSerial;
    int suModel;
    int imageSensorType;
};
const ModelDefaults knownModels[] = {
    {12, "VQ00000000", 66, 15},
    {14, "IQ00000000", 65, 15},
};

} // namespace

bool ProdInfo::initSettings()
{
    FactoryData::WriteWindow window(LOG_SITE);
    if (!window.isOpen())
        return false;

    // Every access to a file that holds a value Qt cannot decode (a @Variant(...) claiming two thousand
    // million items) fails its allocation. The reset is the way out of such a file, so it is emptied in
    // place first, which keeps its mode.
    try {
        QSettings(FactoryData::settingsPath(), QSettings::IniFormat).allKeys();
    } catch (const std::bad_alloc &) {
        QFile(FactoryData::settingsPath()).resize(0);
    }

    // 255 stays when the platform cannot tell the model.
    Version::kroProductInfo info = {0, 255};
    Version::productInfo(&info);
    const ModelDefaults *model = nullptr;
    for (const ModelDefaults &known : knownModels) {
        if (known.cameraModel == info.cameraModel)
            model = &known;
    }
    if (!model)
        LOG.critical("Unknown camera model!");

    // Cleared through the settings object, the file keeps its mode, and a kill leaves the old file or the
    // new one.
    window.write([&](QSettings &settings) {
        settings.clear();
        if (model) {
            settings.setValue(keyOf(&m_SuSerial), QString::fromLatin1(model->suSerial));
            settings.setValue(keyOf(&m_SuModel), model->suModel);
            settings.setValue(keyOf(&m_ImageSensorType), model->imageSensorType);
        }
        settings.setValue(keyOf(&m_AuxDebug), 1);
        settings.setValue(keyOf(&m_IrFilterType), 5);
        settings.setValue(keyOf(&m_NrofTesselDACCalibrationValues), 0);
    });
    return window.close();
}
