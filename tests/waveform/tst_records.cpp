#include "vornwaveform.h"

#include <QTest>

class TstRecords : public QObject
{
    Q_OBJECT

private slots:
    void defaultWaveformResizesInPlace();
    void copiesShareSamplesUntilWritten();
    void envelopeIsEmptyUntilBothCurvesHoldSamples_data();
    void envelopeIsEmptyUntilBothCurvesHoldSamples();
};

void TstRecords::defaultWaveformResizesInPlace()
{
    WaveformData w;
    QVERIFY(w.name.isEmpty() && w.unit.isEmpty());
    QCOMPARE(w.sampleInterval, 0.0);
    QCOMPARE(w.startTime, 0.0);
    QVERIFY(w.samples->empty());
    w.samples.writable().resize(4);
    QCOMPARE(*w.samples, std::vector<double>(4, 0.0));
    double *raw = w.samples.writable().data();
    raw[2] = 7.5;
    QCOMPARE((*w.samples)[2], 7.5);
}

void TstRecords::copiesShareSamplesUntilWritten()
{
    WaveformData source;
    source.name = QStringLiteral("CH1");
    source.unit = QStringLiteral("V");
    source.sampleInterval = 1e-6;
    source.startTime = -2e-3;
    source.samples.writable().assign({1.0, 2.0, 3.0});
    WaveformData copy = source;
    QCOMPARE(copy.name, source.name);
    QCOMPARE(copy.unit, source.unit);
    QCOMPARE(copy.sampleInterval, source.sampleInterval);
    QCOMPARE(copy.startTime, source.startTime);
    WaveformData assigned;
    assigned = source;
    QVERIFY(copy.samples.sharesStorageWith(source.samples));
    QVERIFY(assigned.samples.sharesStorageWith(source.samples));
    QCOMPARE(copy.samples->data(), source.samples->data());

    source.samples.writable()[0] = 99.0;
    source.samples.writable().push_back(4.0);
    QVERIFY(!copy.samples.sharesStorageWith(source.samples));
    QCOMPARE(*copy.samples, (std::vector<double>{1.0, 2.0, 3.0}));
    QCOMPARE(*assigned.samples, (std::vector<double>{1.0, 2.0, 3.0}));
    QCOMPARE(source.samples->size(), size_t(4));
    // Reading through a non-const record does not copy; the two untouched copies still share.
    QVERIFY(copy.samples.sharesStorageWith(assigned.samples));
    const double *shared = copy.samples->data();
    QVERIFY(copy.samples.writable().data() != shared);
    QCOMPARE(*copy.samples, *assigned.samples);
    // A sole owner writes in place.
    const double *own = copy.samples->data();
    QCOMPARE(copy.samples.writable().data(), own);
}

void TstRecords::envelopeIsEmptyUntilBothCurvesHoldSamples_data()
{
    QTest::addColumn<int>("upperCount");
    QTest::addColumn<int>("lowerCount");
    QTest::addColumn<bool>("empty");
    QTest::newRow("default") << 0 << 0 << true;
    QTest::newRow("upper only") << 3 << 0 << true;
    QTest::newRow("lower only") << 0 << 3 << true;
    QTest::newRow("both") << 3 << 3 << false;
}

void TstRecords::envelopeIsEmptyUntilBothCurvesHoldSamples()
{
    QFETCH(int, upperCount);
    QFETCH(int, lowerCount);
    QFETCH(bool, empty);
    EnvelopeData e;
    e.upper.samples.writable().resize(static_cast<size_t>(upperCount));
    e.lower.samples.writable().resize(static_cast<size_t>(lowerCount));
    QCOMPARE(e.isEmpty(), empty);
}

QTEST_APPLESS_MAIN(TstRecords)
#include "tst_records.moc"
