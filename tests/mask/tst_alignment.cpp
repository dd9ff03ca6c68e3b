// Captures triggered at another moment pass once aligned; real timing faults still fail.

#include "alignmentinternal.h"
#include "vornmask.h"

#include <QTest>

#include <cmath>
#include <random>

namespace {

constexpr double DT = 1e-6;

// A 3.3 V pulse at 1 MHz over 20 ms with 5 mV of noise and ringing edges, from rise to fall.
WaveformData pulse(unsigned seed, double rise, double fall, double amplitude = 3.3)
{
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0.0, 5e-3);
    const auto step = [](double t) {
        const double zeta = 0.3, w = 2 * M_PI * 50e3, wd = w * std::sqrt(1 - zeta * zeta);
        return t < 0 ? 0.0
                     : 1 - std::exp(-zeta * w * t) * (std::cos(wd * t) + zeta / std::sqrt(1 - zeta * zeta) * std::sin(wd * t));
    };
    WaveformData w;
    w.name = QStringLiteral("A1");
    w.unit = QStringLiteral("V");
    w.sampleInterval = DT;
    std::vector<double> &s = w.samples.writable();
    for (int i = 0; i < 20000; ++i)
        s.push_back(amplitude * (step(i * DT - rise) - step(i * DT - fall)) + noise(random));
    return w;
}

} // namespace

class TstAlignment : public QObject
{
    Q_OBJECT

private slots:
    // The golden envelope covers 3 ms ... 17 ms of five good pulses rising at 5 ms and falling at 12 ms,
    // so that a capture moved by up to 2 ms still covers it.
    void initTestCase()
    {
        SourceHull hull;
        for (unsigned seed = 1; seed <= 5; ++seed)
            hull.add(pulse(seed, 5e-3, 12e-3));
        EnvelopeBuildOptions options;
        options.start = 3e-3;
        options.end = 17e-3;
        m_envelope = hull.build(options);
        QVERIFY(!m_envelope.isEmpty());
        m_golden = hull.build({});
        QVERIFY(!m_golden.isEmpty());
    }

    // A scope triggered elsewhere: the same good pulse, later or earlier in a capture of the
    // golden one's length. The part of the envelope the shift moves past the capture's end is
    // said, not failed; a capture that is also cut short still fails for what it lacks.
    void sameLengthCapturesPassAtTheirShift_data()
    {
        QTest::addColumn<double>("shift");
        QTest::addColumn<int>("samples");
        QTest::addColumn<bool>("trigger");
        for (double shift : {100e-6, 487.3e-6, -250e-6}) {
            for (bool trigger : {false, true})
                QTest::addRow("%s %.1f us", trigger ? "trigger" : "search", shift * 1e6) << shift << 20000 << trigger;
        }
        QTest::newRow("cut 1 ms short") << 300e-6 << 19000 << false;
    }
    void sameLengthCapturesPassAtTheirShift()
    {
        QFETCH(double, shift);
        QFETCH(int, samples);
        QFETCH(bool, trigger);
        WaveformData capture = pulse(40, 5e-3 + shift, 12e-3 + shift);
        capture.samples.writable().resize(size_t(samples));
        AlignmentOptions options;
        options.maxShift = 1e-3;
        options.trigger = trigger;
        options.level = 1.65;
        const EnvelopeCheckResult r = checkAligned(capture, m_golden, options);
        QVERIFY2(std::fabs(r.shift - shift) <= DT, qPrintable(QString::number(r.shift * 1e6)));
        QCOMPARE(r.violations(), uint64_t(0));
        QCOMPARE(r.passed(), samples == 20000);
        QVERIFY(std::fabs(r.uncovered - (20000 - samples) * DT) < DT);
        QVERIFY(std::fabs(r.uncoveredByShift - std::fabs(shift)) < DT);
        QVERIFY2(checkNotes(r).contains(shift > 0 ? "at the end not covered after the shift" : "at the start"),
                 qPrintable(checkNotes(r)));
    }

    // Trigger alignment takes the golden crossing from the envelope's sources: a source comes
    // back at shift zero, also after widening, and passes.
    void aSourceIsAtShiftZeroByTrigger_data()
    {
        QTest::addColumn<double>("dx");
        QTest::addColumn<double>("dy");
        QTest::newRow("as made") << 0.0 << 0.0;
        QTest::newRow("widened") << 30e-6 << 0.05;
    }
    void aSourceIsAtShiftZeroByTrigger()
    {
        QFETCH(double, dx);
        QFETCH(double, dy);
        AlignmentOptions options;
        options.trigger = true;
        options.level = 1.65;
        for (unsigned seed : {1u, 4u}) {
            const EnvelopeCheckResult r = checkAligned(pulse(seed, 5e-3, 12e-3), widenEnvelope(m_golden, dx, dy), options);
            QVERIFY2(std::fabs(r.shift) <= DT, qPrintable(QString::number(r.shift * 1e6)));
            QVERIFY(r.passed());
        }
    }

    // What a check did not judge is said: a hole in the limits, and a capture at another rate.
    void notesSayWhatWasNotJudged()
    {
        EnvelopeData holed = m_golden;
        for (WaveformData *curve : {&holed.upper, &holed.lower})
            std::fill_n(curve->samples.writable().begin() + 8000, 1500, std::nan(""));
        EnvelopeCheckResult r = checkEnvelope(pulse(2, 5e-3, 12e-3), holed);
        QVERIFY(r.passed());
        QVERIFY(std::fabs(r.gaps - 1501 * DT) < 1e-9);
        QCOMPARE(checkNotes(r), QStringLiteral("1.501 ms of the envelope without limits (7.999 ms to 9.5 ms)"));
        WaveformData slow = pulse(2, 5e-3, 12e-3);
        slow.sampleInterval = 5 * DT;
        slow.samples.writable().resize(4000);
        r = checkEnvelope(slow, m_golden);
        QCOMPARE(checkNotes(r), QStringLiteral("capture at 200 kHz, envelope made at 1 MHz"));
    }

    void findsAKnownShiftWithinASample_data()
    {
        QTest::addColumn<double>("shift");
        QTest::addColumn<int>("method"); // 0 search, 1 rising trigger, 2 falling trigger
        for (double shift : {0.0, 317.4e-6, -1234.6e-6, 1999e-6}) {
            for (int method : {0, 1, 2})
                QTest::addRow("%s %.1f us", method == 0 ? "search" : method == 1 ? "rising" : "falling", shift * 1e6)
                    << shift << method;
        }
    }
    void findsAKnownShiftWithinASample()
    {
        QFETCH(double, shift);
        QFETCH(int, method);
        const WaveformData capture = pulse(100 + method, 5e-3 + shift, 12e-3 + shift);
        QVERIFY(!checkEnvelope(capture, m_envelope).passed() || shift == 0.0);
        AlignmentOptions options;
        options.maxShift = 2e-3;
        options.trigger = method > 0;
        options.level = 1.65;
        options.edge = method == 2 ? TriggerEdge::Falling : TriggerEdge::Rising;
        const EnvelopeCheckResult r = checkAligned(capture, m_envelope, options);
        QVERIFY2(std::fabs(r.shift - shift) <= DT, qPrintable(QString::number(r.shift * 1e6)));
        QVERIFY2(r.passed(), qPrintable(QStringLiteral("%1 outside, first at %2, uncovered %3")
                                            .arg(r.violations()).arg(r.firstViolation).arg(r.uncovered)));
    }

    // Alignment never hides a pulse narrower or wider than the envelope allows, whichever shift.
    void aWrongWidthFailsAtEveryShift_data()
    {
        QTest::addColumn<double>("widthChange");
        QTest::newRow("40 us short") << -40e-6;
        QTest::newRow("40 us long") << 40e-6;
    }
    void aWrongWidthFailsAtEveryShift()
    {
        QFETCH(double, widthChange);
        const WaveformData capture = pulse(7, 5.3e-3, 12.3e-3 + widthChange);
        for (int s = -2000; s <= 2000; s += 5)
            QVERIFY2(!checkEnvelope(shiftedWaveform(capture, s * DT), m_envelope).passed(), qPrintable(QString::number(s)));
        AlignmentOptions options;
        options.maxShift = 2e-3;
        const EnvelopeCheckResult searched = checkAligned(capture, m_envelope, options);
        QVERIFY(!searched.passed() && searched.violations() > 0);
        QVERIFY2(std::fabs(searched.shift - 0.3e-3) < 50e-6, qPrintable(QString::number(searched.shift)));
        options.trigger = true;
        options.level = 1.65;
        QVERIFY(!checkAligned(capture, m_envelope, options).passed());
    }

    void aMissingCrossingFailsWithItsReason_data()
    {
        QTest::addColumn<double>("amplitude");
        QTest::addColumn<int>("edge");
        QTest::addColumn<QString>("failure");
        QTest::newRow("too low to rise through") << 1.0 << int(TriggerEdge::Rising) << "no rising crossing of 1.65 V";
        QTest::newRow("too low to fall through") << 1.0 << int(TriggerEdge::Falling) << "no falling crossing of 1.65 V";
        QTest::newRow("crosses") << 3.3 << int(TriggerEdge::Falling) << "";
    }
    void aMissingCrossingFailsWithItsReason()
    {
        QFETCH(double, amplitude);
        QFETCH(int, edge);
        QFETCH(QString, failure);
        AlignmentOptions options;
        options.trigger = true;
        options.level = 1.65;
        options.edge = TriggerEdge(edge);
        const EnvelopeCheckResult r = checkAligned(pulse(3, 5e-3, 12e-3, amplitude), m_envelope, options);
        QCOMPARE(r.failure, failure);
        QCOMPARE(r.passed(), failure.isEmpty());
    }

    // The search's shortcuts (bounds, a ceiling from the window before, two cores) choose exactly
    // the shift that working out every shift in full does, ties and all.
    void shortcutsChooseTheShiftEveryShiftGives_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<double>("shift");
        QTest::addColumn<double>("maxShift");
        QTest::newRow("good pulse, late") << 0 << 317.4e-6 << 2e-3;
        QTest::newRow("good pulse, early") << 0 << -1234.6e-6 << 2e-3;
        QTest::newRow("narrow pulse, outside at every shift") << 1 << 0.0 << 1e-3;
        QTest::newRow("flat capture, every shift ties") << 2 << 0.0 << 1e-3;
        QTest::newRow("steps, shifts strided") << 3 << 0.0 << 6e-3;
    }
    void shortcutsChooseTheShiftEveryShiftGives()
    {
        QFETCH(int, kind);
        QFETCH(double, shift);
        QFETCH(double, maxShift);
        WaveformData capture;
        EnvelopeData envelope = m_golden;
        if (kind == 0) {
            capture = pulse(60, 5e-3 + shift, 12e-3 + shift);
        } else if (kind == 1) {
            capture = pulse(61, 5.3e-3, 12.3e-3 - 40e-6);
            envelope = m_envelope;
        } else if (kind == 2) {
            capture = pulse(62, 0.0, 0.0);
            capture.samples.writable().assign(20000, 1.0);
            for (WaveformData *curve : {&envelope.upper, &envelope.lower})
                std::fill(curve->samples.writable().begin(), curve->samples.writable().end(), curve == &envelope.upper ? 2.0 : 0.0);
        } else {
            // Steps every 7,919 samples of a noisy sine, in a band with room at both ends: only
            // shifts near the true one fit, and (with many samples near a limit) the refined
            // windows are tried at a stride.
            const int count = 40000;
            std::mt19937 random(7);
            std::uniform_real_distribution<double> noise(-0.1, 0.1);
            capture.sampleInterval = DT;
            std::vector<double> &s = capture.samples.writable();
            for (int i = 0; i < count; ++i)
                s.push_back(std::sin(i * 1e-3) + noise(random) + ((i / 7919) % 2 ? 1.0 : 0.0));
            SourceHull hull;
            hull.add(capture);
            EnvelopeBuildOptions options;
            options.dx = 2 * DT;
            options.dy = 0.05;
            options.start = 7000 * DT;
            options.end = (count - 7000) * DT;
            options.maxIntervals = uint64_t(count / 50);
            envelope = hull.build(options);
            capture = shiftedWaveform(capture, -1717 * DT);
        }
        const double fast = searchShift(capture, envelope, maxShift);
        QCOMPARE(fast, searchShiftTryingEveryShift(capture, envelope, maxShift));
        if (kind == 0 || kind == 3)
            QVERIFY2(std::fabs(fast - (kind == 0 ? shift : 1717 * DT)) <= 50 * DT, qPrintable(QString::number(fast * 1e6)));
    }

    // The aligned check passes whole blocks well inside the band on the extremes the search
    // read; its every figure and mark must be those of checking each sample at that shift.
    void alignedCheckJudgesEverySampleAsThePlainOne_data()
    {
        QTest::addColumn<QString>("fault");
        // Also flat captures under straight limits: one sample near a limit deep inside, and an
        // upper limit alone that falls through the samples inside a block.
        for (const char *fault : {"none", "glitch", "nan", "infinity", "low", "late edge", "near a limit", "falling limit"})
            QTest::newRow(fault) << QString::fromLatin1(fault);
    }
    void alignedCheckJudgesEverySampleAsThePlainOne()
    {
        QFETCH(QString, fault);
        const double shift = 212e-6;
        WaveformData capture = pulse(70, 5e-3 + shift, (fault == "late edge" ? 12.04e-3 : 12e-3) + shift,
                                     fault == "low" ? 3.0 : 3.3);
        std::vector<double> &s = capture.samples.writable();
        EnvelopeData envelope = m_envelope;
        if (fault == "near a limit" || fault == "falling limit") {
            envelope.upper.sampleInterval = envelope.lower.sampleInterval = 19999 * DT;
            envelope.upper.startTime = envelope.lower.startTime = 0.0;
            envelope.upper.samples.writable() = {1.0, fault == "near a limit" ? 1.0 : 0.5};
            // Under the falling limit alone, so that no margin is worked out there.
            const double lower = fault == "near a limit" ? -1.0 : std::nan("");
            envelope.lower.samples.writable() = {lower, lower};
            s.assign(s.size(), fault == "near a limit" ? 0.0 : 0.6);
            s[12345] = fault == "near a limit" ? 0.9 : 0.6;
        }
        if (fault == "glitch")
            s[9000] += 0.4;
        if (fault == "nan")
            std::fill(s.begin() + 15000, s.begin() + 15003, std::nan(""));
        if (fault == "infinity")
            s[16000] = INFINITY;
        AlignmentOptions options;
        options.maxShift = 1e-3;
        ViolationMask marks, plainMarks;
        const EnvelopeCheckResult r = checkAligned(capture, envelope, options, &marks);
        const EnvelopeCheckResult plain = checkShifted(capture, envelope, r.shift, &plainMarks);
        QCOMPARE(r.checked, plain.checked);
        QCOMPARE(r.nanSamples, plain.nanSamples);
        QCOMPARE(r.above, plain.above);
        QCOMPARE(r.below, plain.below);
        QCOMPARE(r.minMargin, plain.minMargin);
        QCOMPARE(r.worst().excess, plain.worst().excess);
        QCOMPARE(r.worst().time, plain.worst().time);
        QCOMPARE(r.firstViolation, plain.firstViolation);
        for (uint64_t i = 0; i < s.size(); ++i)
            QVERIFY(marks.test(i) == plainMarks.test(i));
        QCOMPARE(r.nanSamples, uint64_t(fault == "nan" ? 3 : 0));
        QCOMPARE(r.violations() == 0, fault == "none" || fault == "nan" || fault == "near a limit");
    }

    void batchTallyStatesTheFailRate()
    {
        BatchTally tally(QStringLiteral("A1"));
        QCOMPARE(tally.line(), QStringLiteral("A1: 0 tested, 0 passed, 0 failed (0.0 %)"));
        for (int i = 0; i < 14; ++i) {
            EnvelopeCheckResult r;
            r.minMargin = i % 4 == 3 ? -0.01 * i : 0.2;
            r.above = i % 4 == 3;
            tally.add(QStringLiteral("c%1.sr").arg(i), r);
        }
        QCOMPARE(tally.line(), QStringLiteral("A1: 14 tested, 11 passed, 3 failed (21.4 %), worst margin -11 % in c11.sr"));
        EnvelopeCheckResult unjudged;
        unjudged.failure = QStringLiteral("no rising crossing of 1.65 V");
        tally.add(QStringLiteral("flat.sr"), unjudged);
        QCOMPARE(tally.line(), QStringLiteral("A1: 15 tested, 11 passed, 4 failed (26.7 %), worst flat.sr (not judged)"));
    }

private:
    EnvelopeData m_envelope;
    EnvelopeData m_golden; // over the whole of the sources' 20 ms
};

QTEST_GUILESS_MAIN(TstAlignment)
#include "tst_alignment.moc"
