#include "prodinfo.h"

#include "factorydata.h"
#include "log.h"

#include <productinfo.h>

#include <QSettings>

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
    // Asked before the window: a platform call that blocks must not hold the partition writable.
    // 255 stays when the platform cannot tell the model.
    Version::kroProductInfo info = {0, 255};
    Version::productInfo(&info);
    const ModelDefaults *model = nullptr;
    for (const ModelDefaults &known : knownModels) {
        if (known.cameraModel == info.cameraModel)
            model = &known;
    }

    FactoryData::WriteWindow window(LOG_SITE);
    if (!window.open()) {
        if (window.isBusy()) // a failed remount has said why
            LOG.warning(": Failed to write %s.", SETTINGS_FILE);
        return false;
    }
    if (!model)
        LOG.critical("Unknown camera model!");
    // Written from nothing, so not even a file that Qt cannot decode stands in the way of the reset.
    const bool written = window.write({}, [&](QSettings &settings) {
        if (model) {
            settings.setValue(keyOf(&m_SuSerial), QString::fromLatin1(model->suSerial));
            settings.setValue(keyOf(&m_SuModel), model->suModel);
            settings.setValue(keyOf(&m_ImageSensorType), model->imageSensorType);
        }
        settings.setValue(keyOf(&m_AuxDebug), 1);
        settings.setValue(keyOf(&m_IrFilterType), 5);
        settings.setValue(keyOf(&m_NrofTesselDACCalibrationValues), 0);
    });
    if (!written)
        LOG.warning(": Failed to write %s.", SETTINGS_FILE);
    return window.close() && written;
}
