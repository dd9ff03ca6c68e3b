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

    void envelopeIsEmptyUntilBothCurvesHoldSamples()
    {
        QList<bool> empty;
        for (const auto &[upper, lower] : {std::pair{0, 0}, {3, 0}, {0, 3}, {3, 3}}) {
            EnvelopeData e;
            e.upper.samples.writable().resize(size_t(upper));
            e.lower.samples.writable().resize(size_t(lower));
            empty << e.isEmpty();
        }
        QCOMPARE(empty, QList<bool>({true, true, true, false}));
    }
};

QTEST_APPLESS_MAIN(TstRecords)
#include "tst_records.moc"
