#ifndef SANDBOX_H
#define SANDBOX_H

#include <QMap>
#include <QStringList>
#include <QVariant>

// One logged message, as the tests compare it.
struct LogRecord
{
    QString type; // "debug", "warning", "critical"
    QString function;
    QString message;
    bool operator==(const LogRecord &o) const { return toString() == o.toString(); }
    QString toString() const { return type + '|' + function + '|' + message; }
};
Q_DECLARE_METATYPE(LogRecord)
char *toString(const LogRecord &record);
using LogRecords = QList<LogRecord>;

// A real factory partition for tests: the test process moves into a private mount namespace and
// mounts a fresh tmpfs at /factory_data for every case. The tool remounts it for real; nothing of
// it is seen outside this process and its children.
namespace Sandbox {

// Enters the private namespace, once per process. Returns an empty string on success, otherwise the
// reason it cannot (the caller skips).
QString enter();

enum class Mount { ReadOnly, Writable };

// Replaces /factory_data with a fresh tmpfs holding `files` (name -> content), mounted read-only like
// the camera's unless asked otherwise. `sizeKiB` bounds the partition.
bool reset(const QMap<QString, QByteArray> &files = {}, Mount mount = Mount::ReadOnly, int sizeKiB = 1024);

// Remounts /factory_data for the test's own purposes, never the tool's. A process monitor can make a
// read-only remount fail with EBUSY for a moment (see refusedFromOutside), so a busy one is tried again
// for up to a second.
bool remount(Mount mount);

// Another program changing files on the partition behind the tool's back; the mount is left as it was.
bool rewrite(const QMap<QString, QByteArray> &files);

// The camera model the stand-in product-information library reports; an empty text removes the file.
void setCameraModel(const QByteArray &text);

// Read from /proc/self/mountinfo, which is what the kernel says, not what the tool believes.
bool isReadOnly();

// The names of the files on the partition, sorted.
QStringList files();
QByteArray read(const QString &name);

// The settings file read back with QSettings: key -> value, and whether it parsed without error.
QMap<QString, QVariant> settings(bool *parsedOk = nullptr);

// Makes a read-only remount fail with EBUSY: a file open for writing on the partition. The
// partition must be writable when this is constructed.
class WriterHold
{
public:
    WriterHold();
    ~WriterHold();
    bool isHeld() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

// True when `records` show a failed read-only remount that no WriterHold caused, unless the call before
// said so too. A program that reads another's open files (a process monitor listing /proc/PID/fd) holds
// each file it looks at for a moment; when the tool closes a written file in that moment, the last
// reference is the monitor's, and a read-only remount made before it lets go fails with EBUSY. The tool
// reports that and leaves the partition writable; the test then runs its case once more, and fails if
// the second run is refused too.
bool refusedFromOutside(const LogRecords &records);

// Makes a writable remount fail with EPERM: CAP_SYS_ADMIN leaves this thread's effective set until
// the object is destroyed.
class NoSysAdmin
{
public:
    NoSysAdmin();
    ~NoSysAdmin();
};

} // namespace Sandbox

// Records every message logged in this process while it exists.
class MessageCapture
{
public:
    MessageCapture();
    ~MessageCapture();
    LogRecords records() const;

private:
    QtMessageHandler m_previous;
};

// The command line that starts the built prodconfig with `arguments`, through the cross emulator
// where there is one: for tests that start and stop the tool themselves.
QStringList toolCommand(const QStringList &arguments);

// The built prodconfig run to its end as a child process, under `wrapper` if given.
struct ToolRun
{
    int exitCode = -1;
    bool crashed = false;
    LogRecords records;
    QByteArray stdOut;
    QByteArray stdErr;
};
ToolRun runTool(const QStringList &arguments, const QStringList &wrapper = {});

#endif // SANDBOX_H
