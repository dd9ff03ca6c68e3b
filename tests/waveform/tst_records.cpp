#include "vornwaveform.h"

#include <QTest>

class TstRecords : public QObject
{
    Q_OBJECT

private slots:
    void defaultWaveformResizesInPlace();
    void copiesShareSamplesUntilWritten();
    void copyKeepsEveryField();
    void envelopeIsEmptyUntilBothCurvesHoldSamples_data();
    void envelopeIsEmptyUntilBothCurvesHoldSamples();
    void clearEmptiesEditPoints();
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
    source.samples.writable().assign({1.0, 2.0, 3.0});
    WaveformData copy = source;
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

void TstRecords::copyKeepsEveryField()
{
    WaveformData w;
    w.name = QStringLiteral("CH1");
    w.unit = QStringLiteral("V");
    w.samples.writable().assign({0.5, -0.5});
    w.sampleInterval = 1e-6;
    w.startTime = -2e-3;
    EnvelopeData e;
    e.upper = w;
    e.lower = w;
    e.lower.name = QStringLiteral("low");
    const EnvelopeData copy = e;
    QCOMPARE(copy.upper.name, QStringLiteral("CH1"));
    QCOMPARE(copy.upper.unit, QStringLiteral("V"));
    QCOMPARE(*copy.upper.samples, (std::vector<double>{0.5, -0.5}));
    QCOMPARE(copy.upper.sampleInterval, 1e-6);
    QCOMPARE(copy.upper.startTime, -2e-3);
    QCOMPARE(copy.lower.name, QStringLiteral("low"));
    EnvelopeData moved = std::move(e);
    QCOMPARE(*moved.lower.samples, (std::vector<double>{0.5, -0.5}));
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

void TstRecords::clearEmptiesEditPoints()
{
    EnvelopeEditData edit;
    edit.waveformIndex = 2;
    edit.points.append(EnvelopePoint{1.0, 2.0, 0.0, true});
    edit.clear();
    QVERIFY(edit.points.isEmpty());
}

QTEST_APPLESS_MAIN(TstRecords)
#include "tst_records.moc"
