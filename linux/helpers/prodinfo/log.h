#ifndef PRODCONFIG_LOG_H
#define PRODCONFIG_LOG_H

#include <QMessageLogger>

// A message logger whose context names the bare operation ("setConfigParam", "main"), the same in
// every build type; Q_FUNC_INFO would give a full signature, and release builds would give nothing.
#define LOG_AT(function) QMessageLogger(__FILE__, __LINE__, function)
#define LOG LOG_AT(__func__)

// The place of an operation, for what a helper logs later on its behalf.
struct LogSite
{
    const char *file;
    int line;
    const char *function;
    QMessageLogger logger() const { return QMessageLogger(file, line, function); }
};
#define LOG_SITE (LogSite{__FILE__, __LINE__, __func__})

#endif // PRODCONFIG_LOG_H
