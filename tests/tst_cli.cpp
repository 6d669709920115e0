#include "sandbox.h"

#include <QtTest>

#include <memory>

// One run of the built tool, as a case file under tests/data/cli describes it (see the README there).
struct Case
{
    QStringList args;
    int exit = 0;
    QStringList log;  // the records after the two start-up messages; "..." stands for any number of them
    QStringList keys; // key=value, as the settings file spells the value
    QString seed = QStringLiteral("settings");
    QByteArray model = "12";
    QString fault;
    QString file;
    QString stdOut; // a golden file, or nothing at all on standard output
    bool writable = false;
};
Q_DECLARE_METATYPE(Case)

namespace {

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void loadCases(const char *group)
{
    QTest::addColumn<Case>("c");
    const QString path = QStringLiteral(TEST_DATA_DIR "/cli/%1.cases").arg(QLatin1String(group));
    const QStringList lines = QString::fromUtf8(contents(path)).split(QLatin1Char('\n'));
    QVERIFY2(lines.size() > 1, qPrintable(path));
    QString name;
    Case c;
    const auto add = [&] {
        if (!name.isEmpty())
            QTest::newRow(qPrintable(name)) << c;
    };
    for (const QString &line : lines) {
        const int colon = line.indexOf(QLatin1Char(':'));
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        QVERIFY2(colon > 0, qPrintable(path + ": " + line));
        const QString tag = line.left(colon);
        // Only the blank after the colon goes: the print's values are aligned with blanks.
        const QString value = line.mid(colon + (line.midRef(colon + 1).startsWith(QLatin1Char(' ')) ? 2 : 1));
        // A misspelt choice would quietly drop a check.
        static const QMap<QString, QStringList> choices{
            {"fault", {"no-sys-admin", "busy"}},
            {"file", {"unchanged", "only these keys", "present", "absent"}},
            {"partition", {"writable", "read-only"}}};
        QVERIFY2(!choices.contains(tag) || choices[tag].contains(value), qPrintable(path + ": " + line));
        if (tag == QLatin1String("case")) {
            add();
            name = value;
            c = Case();
        } else if (tag == QLatin1String("args")) {
            c.args = value.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        } else if (tag == QLatin1String("exit")) {
            c.exit = value.toInt();
        } else if (tag == QLatin1String("log")) {
            c.log << value;
        } else if (tag == QLatin1String("key")) {
            c.keys << value;
        } else if (tag == QLatin1String("seed")) {
            c.seed = value;
        } else if (tag == QLatin1String("model")) {
            c.model = value == QLatin1String("none") ? QByteArray() : value.toLatin1();
        } else if (tag == QLatin1String("fault")) {
            c.fault = value;
        } else if (tag == QLatin1String("file")) {
            c.file = value;
        } else if (tag == QLatin1String("stdout")) {
            c.stdOut = value;
        } else if (tag == QLatin1String("partition")) {
            c.writable = value == QLatin1String("writable");
        } else {
            QFAIL(qPrintable(path + ": unknown line: " + line));
        }
    }
    add();
}

bool matches(const QStringList &records, const QStringList &expected)
{
    QString pattern = QStringLiteral("\\A");
    for (const QString &line : expected)
        pattern += line == QLatin1String("...") ? QStringLiteral("(?:.*?\\n)?")
                                                : QRegularExpression::escape(line) + QStringLiteral("\\n");
    const QString text = records.isEmpty() ? QString() : records.join(QLatin1Char('\n')) + QLatin1Char('\n');
    return QRegularExpression(pattern + QStringLiteral("\\z"), QRegularExpression::DotMatchesEverythingOption)
        .match(text)
        .hasMatch();
}

// A value as the settings file spells it: list items joined by a comma and a blank, points as @Point(x y).
QString text(const QVariant &value)
{
    if (value.userType() == QMetaType::QPoint)
        return QStringLiteral("@Point(%1 %2)").arg(value.toPoint().x()).arg(value.toPoint().y());
    if (value.userType() != QMetaType::QVariantList && value.userType() != QMetaType::QStringList)
        return value.toString();
    QStringList items;
    for (const QVariant &item : value.toList())
        items << text(item);
    return items.join(QStringLiteral(", "));
}

void runCase()
{
    QFETCH(Case, c);
    const bool eepromOnly = c.seed == QLatin1String("eeprom");
    const QString seedName = eepromOnly ? QStringLiteral("eeprom") : QStringLiteral("settings.ini");
    const bool sample = eepromOnly || c.seed == QLatin1String("settings");
    const QByteArray seed = contents(sample ? QStringLiteral(SAMPLES_DIR "/") + seedName
                                            : QStringLiteral(TEST_DATA_DIR "/cli/") + c.seed);
    QVERIFY(!seed.isEmpty());
    // A file held open for writing makes the read-only remount fail; it needs a writable partition.
    const bool busy = c.fault == QLatin1String("busy");
    QVERIFY(Sandbox::reset({{seedName, seed}}, busy ? Sandbox::Mount::Writable : Sandbox::Mount::ReadOnly));
    Sandbox::setCameraModel(c.model);
    std::unique_ptr<Sandbox::WriterHold> hold(busy ? new Sandbox::WriterHold : nullptr);
    QVERIFY(!busy || hold->isHeld());
    const QStringList noSysAdmin{"setpriv", "--bounding-set", "-sys_admin", "--"};

    const ToolRun run =
        runTool(c.args, c.fault == QLatin1String("no-sys-admin") ? noSysAdmin : QStringList());
    if (Sandbox::refusedFromOutside(run.records))
        return runCase();
    QVERIFY2(!run.crashed, run.stdErr.constData());
    QCOMPARE(run.exitCode, c.exit);
    QStringList records;
    for (const LogRecord &r : run.records)
        records << r.type + QLatin1Char('|') + r.function + QLatin1Char('|') + r.message;
    QCOMPARE(records.mid(0, 2),
             (QStringList{"debug|main|\"Production Config Tool\"", "debug|main|Version:  \"\""}));
    records = records.mid(2);
    if (c.log.contains(QStringLiteral("...")))
        QVERIFY2(matches(records, c.log), qPrintable(records.join(QLatin1Char('\n'))));
    else
        QCOMPARE(records, c.log);

    // The parser prints "Usage:" with the path it was started by; the rest is the same everywhere.
    QString out = QString::fromUtf8(run.stdOut);
    if (out.startsWith(QLatin1String("Usage: ")))
        out = out.mid(out.indexOf(QLatin1Char('\n')) + 1);
    const QString golden =
        c.stdOut.isEmpty() ? QString() : QString::fromUtf8(contents(TEST_DATA_DIR "/cli/" + c.stdOut));
    QCOMPARE(out.split(QLatin1Char('\n')), golden.split(QLatin1Char('\n')));
    QCOMPARE(Sandbox::isReadOnly(), !c.writable);

    if (c.file == QLatin1String("absent"))
        QCOMPARE(Sandbox::files(), QStringList{"eeprom"});
    else if (c.file == QLatin1String("present"))
        QVERIFY(Sandbox::files().contains(QStringLiteral("settings.ini")));
    else if (c.file == QLatin1String("unchanged")) {
        // Byte for byte says it all, and some seeds are not for QSettings to read.
        QCOMPARE(Sandbox::read(QStringLiteral("settings.ini")), seed);
        return;
    }
    bool parsedOk = false;
    const QMap<QString, QVariant> settings = Sandbox::settings(&parsedOk);
    QVERIFY(parsedOk);
    QStringList keys;
    for (const QString &pair : c.keys) {
        const QString key = pair.section(QLatin1Char('='), 0, 0);
        QVERIFY2(settings.contains(key), qPrintable(key + " is missing"));
        QCOMPARE(key + QLatin1Char('=') + text(settings.value(key)), pair);
        keys << key;
    }
    if (c.file == QLatin1String("only these keys")) {
        keys.sort();
        QCOMPARE(settings.keys(), keys);
    }
}

} // namespace

class TestCommandLine : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const QString whyNot = Sandbox::enter();
        if (!whyNot.isEmpty())
            QSKIP(qPrintable(whyNot));
    }

    void conversions_data() { loadCases("conversions"); }
    void conversions() { runCase(); }
    void lists_data() { loadCases("lists"); }
    void lists() { runCase(); }
    void runEnding_data() { loadCases("run-ending"); }
    void runEnding() { runCase(); }
    void order_data() { loadCases("order"); }
    void order() { runCase(); }
    void initOption_data() { loadCases("init"); }
    void initOption() { runCase(); }
    void parser_data() { loadCases("parser"); }
    void parser() { runCase(); }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_cli.moc"
