#include "sandbox.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QMutex>
#include <QProcess>
#include <QSettings>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

const char factoryData[] = "/factory_data";

bool mountTmpfs(const char *target, const QByteArray &options)
{
    return ::mount("sandbox", target, "tmpfs", 0, options.constData()) == 0;
}

} // namespace

QString Sandbox::enter()
{
    static QString reason = [] {
        if (geteuid() != 0)
            return QStringLiteral(
                "needs root: the factory partition is a tmpfs in a private mount namespace");
        if (unshare(CLONE_NEWNS) != 0)
            return QStringLiteral("cannot enter a private mount namespace: %1")
                .arg(QString::fromLocal8Bit(strerror(errno)));
        // Keep every mount made from here on inside this namespace.
        if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return QStringLiteral("cannot make mounts private: %1")
                .arg(QString::fromLocal8Bit(strerror(errno)));
        ::mkdir(factoryData, 0755);
        // A private /run for the stand-in's camera-model file.
        if (!mountTmpfs("/run", "size=64k,mode=0755") || ::mkdir("/run/product-info", 0755) != 0)
            return QStringLiteral("cannot mount a private /run: %1")
                .arg(QString::fromLocal8Bit(strerror(errno)));
        if (!reset())
            return QStringLiteral("cannot mount a tmpfs at /factory_data: %1")
                .arg(QString::fromLocal8Bit(strerror(errno)));
        return QString();
    }();
    return reason;
}

namespace {

bool writeFiles(const QMap<QString, QByteArray> &files)
{
    // QSettings keeps files it has read in a process-wide cache and rereads one only when its size or
    // time stamp changed; a file written here gets a time stamp no earlier file had, so it is reread.
    static qint64 written = 0;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        QFile file(QLatin1String(factoryData) + QLatin1Char('/') + it.key());
        if (!file.open(QIODevice::WriteOnly) || file.write(it.value()) != it.value().size() || !file.flush())
            return false;
        file.setFileTime(QDateTime::fromSecsSinceEpoch(946684800 + ++written),
                         QFileDevice::FileModificationTime);
    }
    return true;
}

} // namespace

bool Sandbox::reset(const QMap<QString, QByteArray> &files, Mount mount, int sizeKiB)
{
    // Drop every earlier layer, so the case starts from an empty partition.
    while (::umount2(factoryData, MNT_DETACH) == 0) {
    }
    if (!mountTmpfs(factoryData, "size=" + QByteArray::number(sizeKiB) + "k,mode=0755"))
        return false;
    if (!writeFiles(files))
        return false;
    if (mount == Mount::ReadOnly)
        return ::mount("", factoryData, "", MS_REMOUNT | MS_RDONLY, "") == 0;
    return true;
}

bool Sandbox::rewrite(const QMap<QString, QByteArray> &files)
{
    const bool readOnly = isReadOnly();
    if (readOnly && ::mount("", factoryData, "", MS_REMOUNT, "") != 0)
        return false;
    const bool written = writeFiles(files);
    if (readOnly && ::mount("", factoryData, "", MS_REMOUNT | MS_RDONLY, "") != 0)
        return false;
    return written;
}

void Sandbox::setCameraModel(const QByteArray &text)
{
    QFile file(QStringLiteral("/run/product-info/camera-model"));
    if (text.isEmpty()) {
        file.remove();
        return;
    }
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(text);
}

bool Sandbox::isReadOnly()
{
    QFile mountInfo(QStringLiteral("/proc/self/mountinfo"));
    if (!mountInfo.open(QIODevice::ReadOnly))
        return false;
    bool readOnly = false;
    // The last line for the mount point is the mount on top.
    for (const QByteArray &line : mountInfo.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() > 5 && fields.at(4) == factoryData)
            readOnly = fields.at(5).split(',').contains("ro");
    }
    return readOnly;
}

QStringList Sandbox::files()
{
    return QDir(QLatin1String(factoryData)).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

QByteArray Sandbox::read(const QString &name)
{
    QFile file(QLatin1String(factoryData) + QLatin1Char('/') + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QMap<QString, QVariant> Sandbox::settings(bool *parsedOk)
{
    const QSettings settings(QStringLiteral("/factory_data/settings.ini"), QSettings::IniFormat);
    if (parsedOk)
        *parsedOk = settings.status() == QSettings::NoError;
    QMap<QString, QVariant> values;
    for (const QString &key : settings.allKeys())
        values.insert(key, settings.value(key));
    return values;
}

Sandbox::WriterHold::WriterHold()
{
    m_fd = ::open("/factory_data/.writer-hold", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
}

Sandbox::WriterHold::~WriterHold()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

namespace {

bool setSysAdminEffective(bool on)
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    if (syscall(SYS_capget, &header, data) != 0)
        return false;
    const quint32 bit = 1u << (CAP_SYS_ADMIN % 32);
    if (on)
        data[CAP_SYS_ADMIN / 32].effective |= bit;
    else
        data[CAP_SYS_ADMIN / 32].effective &= ~bit;
    return syscall(SYS_capset, &header, data) == 0;
}

} // namespace

Sandbox::NoSysAdmin::NoSysAdmin() { setSysAdminEffective(false); }

Sandbox::NoSysAdmin::~NoSysAdmin() { setSysAdminEffective(true); }

char *toString(const LogRecord &record)
{
    return qstrdup(
        QStringLiteral("%1|%2|%3").arg(record.type, record.function, record.message).toUtf8().constData());
}

namespace {

QMutex captureMutex;
LogRecords captured;
QtMessageHandler previousHandler = nullptr;

QString typeName(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return QStringLiteral("debug");
    case QtInfoMsg:
        return QStringLiteral("info");
    case QtWarningMsg:
        return QStringLiteral("warning");
    case QtCriticalMsg:
        return QStringLiteral("critical");
    case QtFatalMsg:
        return QStringLiteral("fatal");
    }
    return QString();
}

void captureMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    QMutexLocker lock(&captureMutex);
    captured.append({typeName(type), QString::fromLatin1(context.function), message});
}

} // namespace

MessageCapture::MessageCapture()
{
    QMutexLocker lock(&captureMutex);
    captured.clear();
    previousHandler = qInstallMessageHandler(captureMessage);
}

MessageCapture::~MessageCapture() { qInstallMessageHandler(previousHandler); }

LogRecords MessageCapture::records() const
{
    QMutexLocker lock(&captureMutex);
    return captured;
}

ToolRun runTool(const QStringList &arguments, const QStringList &wrapper)
{
    // Each record is framed, so messages that span lines (the print's position blocks) stay whole.
    static const QString begin = QStringLiteral("\x1e<");
    static const QString end = QStringLiteral(">\x1e");
    QStringList command = wrapper;
    const QString launcher = QStringLiteral(PRODCONFIG_LAUNCHER);
    if (!launcher.isEmpty())
        command += launcher.split(QLatin1Char('|'));
    command += QStringLiteral(PRODCONFIG_PATH);
    command += arguments;

    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_MESSAGE_PATTERN"),
               begin + QStringLiteral("%{type}|%{function}|%{message}") + end);
    process.setProcessEnvironment(env);
    process.start(command.takeFirst(), command);
    ToolRun run;
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        run.crashed = true;
        return run;
    }
    run.crashed = process.exitStatus() != QProcess::NormalExit;
    run.exitCode = process.exitCode();
    run.stdOut = process.readAllStandardOutput();
    run.stdErr = process.readAllStandardError();

    const QString text = QString::fromUtf8(run.stdErr);
    for (int from = text.indexOf(begin); from >= 0; from = text.indexOf(begin, from)) {
        const int to = text.indexOf(end, from);
        if (to < 0)
            break;
        const QString body = text.mid(from + begin.size(), to - from - begin.size());
        const int first = body.indexOf(QLatin1Char('|'));
        const int second = body.indexOf(QLatin1Char('|'), first + 1);
        run.records.append({body.left(first), body.mid(first + 1, second - first - 1), body.mid(second + 1)});
        from = to + end.size();
    }
    return run;
}
