#include "vornwaveform.h"

#include <QHash>

namespace {

const QString UPPER = QStringLiteral(" [upper]");
const QString LOWER = QStringLiteral(" [lower]");

} // namespace

bool isEnvelopeCurveName(const QString &name)
{
    return name.endsWith(UPPER) || name.endsWith(LOWER);
}

// One pass to index the names, one to pair: a capture of ten thousand channels pairs at once.
QVector<EnvelopePairing> pairEnvelopeCurves(const QStringList &names)
{
    QHash<QString, int> last; // the last of equal names wins
    last.reserve(names.size());
    for (int i = 0; i < names.size(); ++i)
        last.insert(names[i], i);
    QVector<EnvelopePairing> pairs;
    for (int i = 0; i < names.size(); ++i) {
        if (isEnvelopeCurveName(names[i]))
            continue;
        EnvelopePairing p;
        p.waveform = i;
        p.upper = last.value(names[i] + UPPER, -1);
        p.lower = last.value(names[i] + LOWER, -1);
        if (p.upper < 0 || p.lower < 0)
            p.upper = p.lower = -1; // a lone curve is no envelope
        pairs.append(p);
    }
    return pairs;
}
