// The Qt floor of a prodconfig run: the same application object and the same command-line parser with
// the same options, and then nothing. bench/run compares prodconfig against it, and checks that both
// print the same --help, which keeps this copy of the option table honest.
//
// Built with FLOOR_WITH_IO it also does the least that any --print must do beyond parsing: one message
// through the message logger and one value read from the settings file. That second floor tells how
// much of the gap to the first one is Qt code that the design asks for rather than the tool's own work.

#include <QCommandLineParser>
#include <QCoreApplication>
#ifdef FLOOR_WITH_IO
#include <QSettings>
#endif

namespace {

struct Option
{
    const char *shortName; // or nullptr
    const char *name;
    const char *valueName; // nullptr for options without a value
    const char *description;
};

const Option options[] = {
    {nullptr, "init", nullptr, "Init values"},
    {nullptr, "print", nullptr, "Print values"},
    {"s", "serial", "serial", "Set serial number (10 bytes)"},
    {nullptr, "su-model", "model", "Set SU model)"},
    {"t", "image-sensor-type", "type", "Set image sensor type (15 = 50 sensor, 17 = 100 sensor)"},
    {nullptr, "image-sensor-serial", "serial", "Set image sensor serial"},
    {nullptr, "image-sensor-calib", "a,b,c,d,e,f", "Set image sensor temp calibration"},
    {"b", "board-test-status", "status", "Set board test status"},
    {nullptr, "su-test-status", "status", "Set SU test status"},
    {nullptr, "calibration-status", "status", "Set calibration status"},
    {nullptr, "dut-status", "status", "Set DUT status"},
    {nullptr, "telvar-pos", "pos", "Set telvar sensor position"},
    {nullptr, "telvar-calib0", "EquID,ID0,ID1,ID2,Pos", "Set Telvar0 calibration"},
    {nullptr, "telvar-calib1", "EquID,ID0,ID1,ID2,Pos", "Set Telvar1 calibration"},
    {nullptr, "telvar-calib2", "EquID,ID0,ID1,ID2,Pos", "Set Telvar2 calibration"},
    {"w", "wifi-region", "region", "Set WIFI Region"},
    {"p", "usb-power", "power", "Set USB power"},
    {"c", "console", "suc|imx", "Set node console to AUX port"},
    {"i", "IR-filter-type", "type", "Set IR filter type"},
    {nullptr, "shell-color", "color", "Set shell color"},
    {nullptr, "trace-level", "level", "Set trace level"},
    {nullptr, "suc-dbg-mask", "mask", "Set SUC debug mask"},
    {nullptr, "imx-dbg-mask", "mask", "Set iMX debug mask"},
    {nullptr, "acc-calib", "a,b,c,d,e,f,g,h,i,j", "Set accelerometer calibration"},
    {nullptr, "prox-calib", "upper,lower", "Set proximity calibration"},
    {nullptr, "thumbwheel-mode", "mode", "Set thumbwheel mode (0=STM32, 1=Poll)"},
    {nullptr, "nrof-tessel-dac-calib-values", "points", "Set number of Tessel DAC calibration points"},
    {nullptr, "tessel-dac-calib", "x,y[,x,y,...]", "Set Tessel DAC calibration points"},
    {nullptr, "acc-calib-ext", "1,2,3,4,5,...,18", "Set accelerometer calibration extended"},
    {nullptr, "acc-calib-temp", "temperature", "Set accelerometer calibration temperature"},
    {nullptr, "acc-temp-calib", "t,x,y,z[,t,x,y,z...]", "Set accelerometer temperature calibration"},
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Production Config Tool"));
    QCoreApplication::setApplicationVersion(QString());

    QCommandLineParser parser;
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
    parser.process(app);
#ifdef FLOOR_WITH_IO
    const QSettings settings(QStringLiteral("/factory_data/settings.ini"), QSettings::IniFormat);
    qDebug("%d", settings.value(QStringLiteral("TraceLevel")).toInt());
#endif
    return 0;
}
