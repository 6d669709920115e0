#include "log.h"
#include "options.h"
#include "prodinfo.h"

#include <QCommandLineParser>
#include <QCoreApplication>

// Every message of the front end names "main" as its function, whichever helper logs it.
#define LOG_MAIN LOG_AT("main")

namespace {

enum class Outcome { Continue, EndRun };

// The setters as plain functions of an int or a list, so that the action table below is constant data:
// nothing of it is built before main, or at all.
using SetNumber = bool (*)(ProdInfo &, int);
using SetList = bool (*)(ProdInfo &, const QListOfInts &);

// The setter's parameter type narrows the number: 8-bit parameters keep the low 8 bits, 32-bit unsigned
// ones all 32 bits.
template <auto setter>
bool number(ProdInfo &prodInfo, int value)
{
    return (prodInfo.*setter)(value);
}

template <auto setter>
bool numbers(ProdInfo &prodInfo, const QListOfInts &values)
{
    return (prodInfo.*setter)(values);
}

template <int index>
bool telvar(ProdInfo &prodInfo, const QListOfInts &values)
{
    QList<quint8> bytes;
    for (int value : values)
        bytes.append(quint8(value));
    return prodInfo.setTelvarCalib(index, bytes);
}

// One number for one setter.
struct SingleValue
{
    const char *announce;
    SetNumber set;
    const char *updated;
    const char *notUpdated;
    Outcome onFailure = Outcome::Continue;
};

Outcome setSingle(const SingleValue &row, ProdInfo &prodInfo, const QString &text)
{
    LOG_MAIN.debug() << row.announce << text;
    bool ok = false;
    const int value = text.toInt(&ok, 10);
    if (ok && row.set(prodInfo, value)) {
        LOG_MAIN.debug() << row.updated;
        return Outcome::Continue;
    }
    LOG_MAIN.warning() << row.notUpdated;
    return row.onFailure;
}

enum class Element { Int, Short };

// A comma-separated list for one setter; the store checks the count.
struct ValueList
{
    const char *announce;
    Element element;
    QtMsgType elementFailureLevel;
    const char *elementFailure; // or nullptr
    SetList set;
    Outcome onFailure = Outcome::Continue;
};

Outcome setList(const ValueList &row, ProdInfo &prodInfo, const QString &text)
{
    LOG_MAIN.debug() << row.announce << text;
    QListOfInts values;
    for (const QString &part : text.split(QLatin1Char(','))) {
        bool ok = false;
        const int value = row.element == Element::Short ? part.toShort(&ok, 10) : part.toInt(&ok, 10);
        if (!ok) {
            if (row.elementFailure) {
                QMessageLogger log = LOG_MAIN;
                (row.elementFailureLevel == QtWarningMsg ? log.warning() : log.debug())
                    << row.elementFailure << part;
            }
            LOG_MAIN.warning() << "Not updated";
            return row.onFailure;
        }
        values.append(value);
    }
    if (row.set(prodInfo, values)) {
        LOG_MAIN.debug() << "Updated";
        return Outcome::Continue;
    }
    LOG_MAIN.warning() << "Not updated";
    return row.onFailure;
}

Outcome setSerial(ProdInfo &prodInfo, const QString &text)
{
    LOG_MAIN.debug() << "Set serial to" << text;
    if (!prodInfo.setSuSerial(text))
        LOG_MAIN.warning() << "Failed to update serial number.";
    return Outcome::Continue;
}

Outcome setConsole(ProdInfo &prodInfo, const QString &text)
{
    const quint8 console = text == QLatin1String("suc") ? 1 : text == QLatin1String("imx") ? 2 : 0;
    LOG_MAIN.debug() << "Set AUX console to" << text << "value" << int(console);
    if (!prodInfo.setAuxDebug(console))
        LOG_MAIN.warning() << "Not updated";
    return Outcome::Continue;
}

Outcome setThumbwheelMode(ProdInfo &prodInfo, const QString &text)
{
    const quint8 mode = text == QLatin1String("0") ? 0 : 1;
    LOG_MAIN.debug() << "Set thumbwheel mode to" << int(mode);
    if (prodInfo.setThumbwheelMode(mode))
        LOG_MAIN.debug() << "Updated";
    else
        LOG_MAIN.warning() << "Not updated";
    return Outcome::Continue;
}

Outcome setTesselPointCount(ProdInfo &prodInfo, const QString &text)
{
    // Text that is not a number counts as 0 points.
    const ushort count = text.toUShort(nullptr, 10);
    if (count > TesselDACCalibrationMaxPoints) {
        LOG_MAIN.critical("Number of calibration points out of range (max %d)",
                          TesselDACCalibrationMaxPoints);
        return Outcome::EndRun;
    }
    LOG_MAIN.debug("Set number of calibration points to %d", count);
    if (prodInfo.setNrofTesselDACCalibrationValues(quint8(count)))
        LOG_MAIN.debug("Updated");
    else
        LOG_MAIN.debug("Not updated");
    return Outcome::Continue;
}

Outcome setTesselPoints(ProdInfo &prodInfo, const QString &text)
{
    const QStringList values = text.split(QLatin1Char(','));
    if (values.size() % 2 != 0) {
        LOG_MAIN.critical("Odd number of values given. An even number of values (x-y pairs) must be given.");
        return Outcome::EndRun;
    }
    const int count = values.size() / 2;
    if (count > TesselDACCalibrationMaxPoints) {
        LOG_MAIN.critical("Number of calibration points out of range (max %d)",
                          TesselDACCalibrationMaxPoints);
        return Outcome::EndRun;
    }
    QList<QPoint> points;
    int coordinates[2];
    for (int i = 0; i < values.size(); ++i) {
        bool ok = false;
        coordinates[i % 2] = values.at(i).toUShort(&ok, 10);
        if (!ok) {
            LOG_MAIN.critical("Failed to convert value ('%s') to unsigned short.",
                              values.at(i).toUtf8().constData());
            return Outcome::EndRun;
        }
        if (i % 2 == 1)
            points.append(QPoint(coordinates[0], coordinates[1]));
    }
    // The count always follows the points given, whatever an earlier option set.
    LOG_MAIN.debug("Setting number of calibration points to %d", count);
    if (!prodInfo.setNrofTesselDACCalibrationValues(quint8(count))) {
        LOG_MAIN.critical(
            "Failed to set number of calibration points. Skipping update of calibration point values.");
        return Outcome::EndRun;
    }
    LOG_MAIN.debug() << "Setting Tessel DAC calibration points" << points;
    if (prodInfo.setTesselDACCalibration(points))
        LOG_MAIN.debug() << "Updated";
    else
        LOG_MAIN.warning() << "Not updated";
    return Outcome::Continue;
}

Outcome init(ProdInfo &prodInfo, const QString &)
{
    prodInfo.initSettings();
    return Outcome::Continue;
}

Outcome print(ProdInfo &prodInfo, const QString &)
{
    prodInfo.print();
    return Outcome::Continue;
}

// What an option does: a function of its own, or one number or one list for one setter.
struct Action
{
    const char *option;
    Outcome (*run)(ProdInfo &, const QString &) = nullptr;
    SingleValue single = {};
    ValueList list = {};
};

constexpr Action single(const char *option, SingleValue row) { return {option, nullptr, row, {}}; }
constexpr Action list(const char *option, ValueList row) { return {option, nullptr, {}, row}; }

Outcome perform(const Action &action, ProdInfo &prodInfo, const QString &text)
{
    if (action.run)
        return action.run(prodInfo, text);
    if (action.single.set)
        return setSingle(action.single, prodInfo, text);
    return setList(action.list, prodInfo, text);
}

// The order in which the actions run, which is not the order of the help text: init first, then
// print, so that a print shows the values from before this run's changes.
constexpr Action actions[] = {
    {"init", init},
    {"print", print},
    {"serial", setSerial},
    {"console", setConsole},
    single("su-model", {"Set SU model", number<&ProdInfo::setSuModel>, "Updated.", "Not updated"}),
    single("image-sensor-type",
           {"Set image sensor type", number<&ProdInfo::setImageSensorType>, "Updated", "Not updated"}),
    single("image-sensor-serial",
           {"Set image sensor serial", number<&ProdInfo::setImageSensorSerial>, "Updated", "Not updated"}),
    list("image-sensor-calib",
         {"Set image sensor calibration", Element::Int, QtWarningMsg, "Failed to convert value to short",
          numbers<&ProdInfo::setImageSensorTemperatureCalibration>}),
    single("board-test-status",
           {"Set board test status", number<&ProdInfo::setBoardTestStatus>, "Updated", "Not updated"}),
    single("su-test-status",
           {"Set SU test status", number<&ProdInfo::setSuTestStatus>, "Updated", "Not updated"}),
    single("calibration-status",
           {"Set calibration status", number<&ProdInfo::setCalibrationStatus>, "Updated", "Not updated"}),
    single("dut-status", {"Set DUT status", number<&ProdInfo::setDutStatus>, "Updated", "Not updated"}),
    single("telvar-pos",
           {"Set Telvar sensor postion", number<&ProdInfo::setTelvarSensorPos>, "Updated", "Not updated"}),
    list("telvar-calib0", {"Set Telvar calibration", Element::Int, QtDebugMsg, nullptr, telvar<0>}),
    list("telvar-calib1", {"Set Telvar calibration", Element::Int, QtDebugMsg, nullptr, telvar<1>}),
    list("telvar-calib2", {"Set Telvar calibration", Element::Int, QtDebugMsg, nullptr, telvar<2>}),
    single("wifi-region",
           {"Set wifi region", number<&ProdInfo::setWifiRegion>, "Wifi region updated.", "Not updated"}),
    single("usb-power", {"Set USB power", number<&ProdInfo::setUsbPower>, "Updated", "Not updated"}),
    // One message for both a bad number and a failed write.
    single("IR-filter-type", {"Set IR filter type", number<&ProdInfo::setIrFilterType>,
                              "IR filter type updated", "Wrong input, expected number"}),
    single("shell-color", {"Set shell color", number<&ProdInfo::setShellColor>, "Updated", "Not updated"}),
    single("trace-level", {"Set trace level", number<&ProdInfo::setTraceLevel>, "Updated", "Not updated"}),
    single("suc-dbg-mask",
           {"Set SUC debug mask", number<&ProdInfo::setSucDebugEnableMask>, "Updated", "Not updated"}),
    single("imx-dbg-mask",
           {"Set iMX debug mask", number<&ProdInfo::setImxDebugEnableMask>, "Updated", "Not updated"}),
    list("acc-calib", {"Set accelerometer calibration", Element::Short, QtDebugMsg,
                       "Failed to convert input to short", numbers<&ProdInfo::setAccelerometerCalibration>}),
    list("acc-calib-ext",
         {"Set accelerometer calibration extended", Element::Short, QtDebugMsg,
          "Failed to convert input to short", numbers<&ProdInfo::setAccelerometerCalibrationExt>}),
    // The temperature is stored as its low 8 bits: -5 becomes 251.
    single("acc-calib-temp",
           {"Set acceleration calibration temperature",
            [](ProdInfo &p, int value) { return p.setAccelerometerCalibrationTemp(value & 0xFF); }, "Updated",
            "Not updated", Outcome::EndRun}),
    list("acc-temp-calib", {"Set acceleration temperature calibration", Element::Int, QtDebugMsg,
                            "Failed to convert input to int",
                            numbers<&ProdInfo::setAccelerometerTemperatureCalib>, Outcome::EndRun}),
    list("prox-calib", {"Set proximity calibration", Element::Short, QtDebugMsg,
                        "Failed to convert input to short", numbers<&ProdInfo::setProximityCalibration>}),
    {"thumbwheel-mode", setThumbwheelMode},
    {"nrof-tessel-dac-calib-values", setTesselPointCount},
    {"tessel-dac-calib", setTesselPoints},
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Production Config Tool"));
    QCoreApplication::setApplicationVersion(QString());
    LOG.debug() << QCoreApplication::applicationName();
    LOG.debug() << "Version: " << QCoreApplication::applicationVersion();

    QCommandLineParser parser;
    Options::declare(parser);
    // Help, version and bad options end the process here, before the factory partition is touched.
    parser.process(app);

    ProdInfo prodInfo;
    for (const Action &action : actions) {
        const QString option = QLatin1String(action.option);
        if (parser.isSet(option) && perform(action, prodInfo, parser.value(option)) == Outcome::EndRun)
            return 1;
    }
    return 0;
}
