#include "sandbox.h"

#include <QtTest>

class TestEeprom : public QObject
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

QTEST_GUILESS_MAIN(TestEeprom)
#include "tst_eeprom.moc"
