#ifndef OPTIONS_H
#define OPTIONS_H

#include <QCommandLineParser>
#include <QCoreApplication>

// The command line of prodconfig, shared with the benchmark's floor program so both parse the same.
namespace Options {

struct Option
{
    const char *shortName; // or nullptr
    const char *name;
    const char *valueName; // nullptr for options without a value
    const char *description;
};

// In the order the help text lists them.
inline const Option options[] = {
    {nullptr, "init", nullptr, QT_TRANSLATE_NOOP("main", "Init values")},
    {nullptr, "print", nullptr, QT_TRANSLATE_NOOP("main", "Print values")},
    {"s", "serial", "serial", QT_TRANSLATE_NOOP("main", "Set serial number (10 bytes)")},
    {nullptr, "su-model", "model", QT_TRANSLATE_NOOP("main", "Set SU model)")},
    {"t", "image-sensor-type", "type",
     QT_TRANSLATE_NOOP("main", "Set image sensor type (15 = 50 sensor, 17 = 100 sensor)")},
    {nullptr, "image-sensor-serial", "serial", QT_TRANSLATE_NOOP("main", "Set image sensor serial")},
    {nullptr, "image-sensor-calib", "a,b,c,d,e,f",
     QT_TRANSLATE_NOOP("main", "Set image sensor temp calibration")},
    {"b", "board-test-status", "status", QT_TRANSLATE_NOOP("main", "Set board test status")},
    {nullptr, "su-test-status", "status", QT_TRANSLATE_NOOP("main", "Set SU test status")},
    {nullptr, "calibration-status", "status", QT_TRANSLATE_NOOP("main", "Set calibration status")},
    {nullptr, "dut-status", "status", QT_TRANSLATE_NOOP("main", "Set DUT status")},
    {nullptr, "telvar-pos", "pos", QT_TRANSLATE_NOOP("main", "Set telvar sensor position")},
    {nullptr, "telvar-calib0", "EquID,ID0,ID1,ID2,Pos", QT_TRANSLATE_NOOP("main", "Set Telvar0 calibration")},
    {nullptr, "telvar-calib1", "EquID,ID0,ID1,ID2,Pos", QT_TRANSLATE_NOOP("main", "Set Telvar1 calibration")},
    {nullptr, "telvar-calib2", "EquID,ID0,ID1,ID2,Pos", QT_TRANSLATE_NOOP("main", "Set Telvar2 calibration")},
    {"w", "wifi-region", "region", QT_TRANSLATE_NOOP("main", "Set WIFI Region")},
    {"p", "usb-power", "power", QT_TRANSLATE_NOOP("main", "Set USB power")},
    {"c", "console", "suc|imx", QT_TRANSLATE_NOOP("main", "Set node console to AUX port")},
    {"i", "IR-filter-type", "type", QT_TRANSLATE_NOOP("main", "Set IR filter type")},
    {nullptr, "shell-color", "color", QT_TRANSLATE_NOOP("main", "Set shell color")},
    {nullptr, "trace-level", "level", QT_TRANSLATE_NOOP("main", "Set trace level")},
    {nullptr, "suc-dbg-mask", "mask", QT_TRANSLATE_NOOP("main", "Set SUC debug mask")},
    {nullptr, "imx-dbg-mask", "mask", QT_TRANSLATE_NOOP("main", "Set iMX debug mask")},
    {nullptr, "acc-calib", "a,b,c,d,e,f,g,h,i,j", QT_TRANSLATE_NOOP("main", "Set accelerometer calibration")},
    {nullptr, "prox-calib", "upper,lower", QT_TRANSLATE_NOOP("main", "Set proximity calibration")},
    {nullptr, "thumbwheel-mode", "mode", QT_TRANSLATE_NOOP("main", "Set thumbwheel mode (0=STM32, 1=Poll)")},
    {nullptr, "nrof-tessel-dac-calib-values", "points",
     QT_TRANSLATE_NOOP("main", "Set number of Tessel DAC calibration points")},
    {nullptr, "tessel-dac-calib", "x,y[,x,y,...]",
     QT_TRANSLATE_NOOP("main", "Set Tessel DAC calibration points")},
    {nullptr, "acc-calib-ext", "1,2,3,4,5,...,18",
     QT_TRANSLATE_NOOP("main", "Set accelerometer calibration extended")},
    {nullptr, "acc-calib-temp", "temperature",
     QT_TRANSLATE_NOOP("main", "Set accelerometer calibration temperature")},
    {nullptr, "acc-temp-calib", "t,x,y,z[,t,x,y,z...]",
     QT_TRANSLATE_NOOP("main", "Set accelerometer temperature calibration")},
};

// Declares the description, help, version and the 31 options, in the order the help text lists them.
inline void declare(QCommandLineParser &parser)
{
    parser.setApplicationDescription(
        QStringLiteral("Application for read and write of production configuration data"));
    parser.addHelpOption();
    parser.addVersionOption();
    for (const Option &option : options) {
        QStringList names{QLatin1String(option.name)};
        if (option.shortName)
            names.prepend(QLatin1String(option.shortName));
        parser.addOption(QCommandLineOption(
            names, QCoreApplication::translate("main", option.description),
            option.valueName ? QCoreApplication::translate("main", option.valueName) : QString()));
    }
}

} // namespace Options

#endif // OPTIONS_H
