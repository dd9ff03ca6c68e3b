#include "vornwaveform.h"

#include <QTest>

class TstRecords : public QObject
{
    Q_OBJECT

private slots:
    void copiesShareSamplesUntilWritten()
    {
        WaveformData source;
        source.samples.writable().assign({1.0, 2.0, 3.0});
        const WaveformData copy = source;
        QVERIFY(copy.samples.sharesStorageWith(source.samples));
        // A shared array is copied before the write; a sole owner writes in place.
        source.samples.writable()[0] = 99.0;
        QVERIFY(!copy.samples.sharesStorageWith(source.samples));
        QCOMPARE(*copy.samples, (std::vector<double>{1.0, 2.0, 3.0}));
        const double *own = source.samples->data();
        QCOMPARE(source.samples.writable().data(), own);
    }

    void envelopeIsEmptyUntilBothCurvesHoldSamples_data()
    {
        QTest::addColumn<int>("upperCount");
        QTest::addColumn<int>("lowerCount");
        QTest::addColumn<bool>("empty");
        QTest::newRow("default") << 0 << 0 << true;
        QTest::newRow("upper only") << 3 << 0 << true;
        QTest::newRow("lower only") << 0 << 3 << true;
        QTest::newRow("both") << 3 << 3 << false;
    }
    void envelopeIsEmptyUntilBothCurvesHoldSamples()
    {
        QFETCH(int, upperCount);
        QFETCH(int, lowerCount);
        QFETCH(bool, empty);
        EnvelopeData e;
        e.upper.samples.writable().resize(size_t(upperCount));
        e.lower.samples.writable().resize(size_t(lowerCount));
        QCOMPARE(e.isEmpty(), empty);
    }
};

QTEST_APPLESS_MAIN(TstRecords)
#include "tst_records.moc"
