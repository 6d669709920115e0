#include "sandbox.h"

#include <QtTest>

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
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_cli.moc"
