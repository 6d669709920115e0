// The Qt floor of a prodconfig run: the same application object and the same command-line parser with
// the same options, and then nothing. bench/run compares prodconfig against it.
//
// Built with FLOOR_WITH_IO it also does the least that any --print must do beyond parsing: one message
// through the message logger and one value read from the settings file. That second floor tells how
// much of the gap to the first one is Qt code that the design asks for rather than the tool's own work.

#include "options.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#ifdef FLOOR_WITH_IO
#include <QSettings>
#endif

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Production Config Tool"));
    QCoreApplication::setApplicationVersion(QString());

    QCommandLineParser parser;
    Options::declare(parser);
    parser.process(app);
#ifdef FLOOR_WITH_IO
    const QSettings settings(QStringLiteral("/factory_data/settings.ini"), QSettings::IniFormat);
    qDebug("%d", settings.value(QStringLiteral("TraceLevel")).toInt());
#endif
    return 0;
}
