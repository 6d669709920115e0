#include "sandbox.h"

#include <QtTest>

class TestSettingsStore : public QObject
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

QTEST_GUILESS_MAIN(TestSettingsStore)
#include "tst_settingsstore.moc"
