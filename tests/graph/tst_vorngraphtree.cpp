// The information tree beside the chart, driven with mouse clicks on its rows.
#include "graphharness.h"

#include <QAction>
#include <QAreaSeries>
#include <QCategoryAxis>
#include <QContextMenuEvent>
#include <QDoubleSpinBox>
#include <QMenu>
#include <QSignalSpy>
#include <QTimer>
#include <QTreeWidget>
#include <QValueAxis>
#include <QtTest>

// Waveforms "a" (gap, 1, 3, gap, 3, 5), "b" and "c", each on its own scale; "b" has an envelope.
class TstVornGraphTree : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { m_h.reset(); }

    void init()
    {
        m_h = std::make_unique<GraphHarness>();
        m_h->graph->addWaveform(makeWaveform(QStringLiteral("a"), {std::nan(""), 1, 3, std::nan(""), 3, 5}, 2e-3));
        QVERIFY(m_h->show({sineWave(QStringLiteral("b"), 2.0), sineWave(QStringLiteral("c"), 50.0)}));
        EnvelopeData envelope;
        envelope.upper = makeWaveform(QStringLiteral("b [upper]"), {2.5, 2.5, 2.5}, 0.01);
        envelope.lower = makeWaveform(QStringLiteral("b [lower]"), {-2.5, -2.5, -2.5}, 0.01);
        graph()->setEnvelope(1, envelope);
    }

    void showsEachWaveformWithItsMeasuredValues()
    {
        QTreeWidgetItem *a = row("a");
        QStringList shown{QString::number(tree()->indexOfTopLevelItem(a)), QString::number(a->checkState(1))};
        for (int i = 0; i < a->childCount(); ++i) {
            if (!tree()->itemWidget(a->child(i), 1))
                shown << a->child(i)->text(0) + ' ' + a->child(i)->text(1);
        }
        // 0.5 V a division around 3 V; the gap stays out of the measured values.
        QCOMPARE(shown, QStringList({"1", QString::number(Qt::Checked), "Range+ 5.5 V", "Range- 500 mV", QString::fromUtf8("\u0394Sample 2 ms"), "Samples 6",
                                     "Max 5 V", "Avg 3 V", "Min 1 V"}));
    }

    void clickedRowSelectsItsWaveform_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("waveform");
        QTest::addColumn<QString>("firstLabel");
        QTest::newRow("waveform row") << "b" << 1 << "-2.5 V";
        QTest::newRow("child row of the last waveform") << "c/Range-" << 2 << "-50 V";
        QTest::newRow("time row means the first waveform") << "Time" << 0 << "500 mV";
    }

    void clickedRowSelectsItsWaveform()
    {
        QFETCH(QString, path);
        QFETCH(int, waveform);
        QFETCH(QString, firstLabel);
        // Start from another waveform, so that every row changes the selection.
        tree()->setCurrentItem(row(waveform == 1 ? "c" : "b"));
        QSignalSpy selected(graph(), &VornGraph::waveformSelectionChanged);
        QTest::mouseClick(tree()->viewport(), Qt::LeftButton, {}, namePos(row(path)));
        QCOMPARE(graph()->selectedWaveformIndex(), waveform);
        QCOMPARE(selected, QList<QVariantList>({{waveform}}));
        QCOMPARE(graph()->m_axisYLabels->categoriesLabels().first(), firstLabel);
    }

    void switchHidesSeriesAndEnvelope()
    {
        VornGraph *g = graph();
        const auto drawn = [g](int i) {
            QStringList shown;
            shown << QString("series %1").arg(g->m_series[i]->isVisible());
            for (QAbstractSeries *s : g->m_envelopeUpperSeries.value(i) + g->m_envelopeLowerSeries.value(i))
                shown << QString("limit %1").arg(s->isVisible());
            for (QAbstractSeries *s : g->m_envelopeAreaSeries.value(i))
                shown << QString("fill %1").arg(s->isVisible());
            return shown;
        };
        const QStringList shown{"series 1", "limit 1", "limit 1", "fill 1"};
        QCOMPARE(drawn(1), shown);
        g->setWaveformVisible(1, false);
        QCOMPARE(drawn(1) << drawn(2).first() << QString::number(row("b")->checkState(1)),
                 QStringList({"series 0", "limit 0", "limit 0", "fill 0", "series 1", "0"}));

        // An edit always shows its waveform, but not the envelope it replaces.
        g->startEnvelopeEditing(1);
        QCOMPARE(drawn(1), QStringList({"series 1", "limit 0", "limit 0", "fill 0"}));
        g->cancelEnvelopeEditing();
        QCOMPARE(drawn(1), shown);
    }

    void contextMenuOffersEnvelopeRequests_data()
    {
        QTest::addColumn<QString>("path"); // empty: below the last row
        QTest::addColumn<QString>("choice");
        QTest::addColumn<QStringList>("menu"); // empty: no menu
        QTest::addColumn<QString>("request");

        const QStringList both{"Edit Envelope", "Delete Envelope"}, editOnly{"Edit Envelope", "Delete Envelope (off)"};
        QTest::newRow("with envelope, delete") << "b" << "Delete Envelope" << both << "delete 1";
        QTest::newRow("no envelope, edit") << "c" << "Edit Envelope" << editOnly << "edit 2";
        QTest::newRow("no envelope, delete disabled") << "a" << "Delete Envelope" << editOnly << "";
        QTest::newRow("closed without choice") << "b" << "" << both << "";
        QTest::newRow("time row") << "Time" << "Edit Envelope" << QStringList() << "";
        QTest::newRow("child row") << "b/Max" << "Edit Envelope" << QStringList() << "";
        QTest::newRow("empty space") << "" << "Edit Envelope" << QStringList() << "";
        QTest::newRow("editing disabled") << "b" << "Edit Envelope" << QStringList() << "";
        // The tree takes no clicks while an edit runs.
        QTest::newRow("edit running") << "b" << "Edit Envelope" << QStringList() << "";
    }

    void contextMenuOffersEnvelopeRequests()
    {
        QFETCH(QString, path);
        const QByteArray setup = QTest::currentDataTag();
        QFETCH(QString, choice);
        QFETCH(QStringList, menu);
        QFETCH(QString, request);
        graph()->setEnvelopeEditingEnabled(setup != "editing disabled");
        if (setup == "edit running")
            graph()->startEnvelopeEditing(2);
        QStringList requests;
        connect(graph(), &VornGraph::editEnvelopeRequested, this, [&](int i) { requests << QString("edit %1").arg(i); });
        connect(graph(), &VornGraph::deleteEnvelopeRequested, this, [&](int i) { requests << QString("delete %1").arg(i); });

        const QPoint below = tree()->viewport()->rect().bottomLeft() + QPoint(40, -4);
        const QPoint pos = path.isEmpty() ? below : namePos(row(path));
        QCOMPARE(tree()->itemAt(pos), path.isEmpty() ? nullptr : row(path));
        QCOMPARE(rightClick(pos, choice), menu);
        QCOMPARE(requests, request.isEmpty() ? QStringList() : QStringList{request});
        // The graph only asks; the host starts or deletes.
        QCOMPARE(graph()->isEnvelopeEditing(), setup == "edit running");
        QVERIFY(graph()->hasEnvelope(1));
    }

    // Past a few dozen waveforms only those with a row in view carry boxes; one scrolled into
    // view gets them, showing the scale it was given meanwhile, and the ones scrolled away lose them.
    void manyWaveformsHaveBoxesOnlyInView()
    {
        GraphHarness many;
        QVector<WaveformData> waveforms;
        for (int i = 0; i < 100; ++i)
            waveforms << sineWave(QString("w%1").arg(i), 1.0);
        QVERIFY(many.show(waveforms));
        VornGraph *g = many.graph.get();
        QTreeWidget *t = g->m_infoTree;
        const auto boxesAndRowsInView = [g, t] {
            QVector<int> boxes, rows;
            for (int i = 0; i < g->waveformCount(); ++i) {
                QTreeWidgetItem *row = g->m_waveformItems[i];
                if (t->itemWidget(row->child(0), 1) && t->itemWidget(row->child(2), 1) == static_cast<QWidget *>(g->m_offsetSpinBoxes[i]))
                    boxes << i;
                for (int k = -1; k < row->childCount(); ++k) {
                    if (t->viewport()->rect().intersects(t->visualItemRect(k < 0 ? row : row->child(k)))) {
                        rows << i;
                        break;
                    }
                }
            }
            return QPair<QVector<int>, QVector<int>>(boxes, rows);
        };
        auto shown = boxesAndRowsInView();
        QVERIFY(!shown.first.isEmpty() && shown.first.contains(0) && !shown.first.contains(99));
        QCOMPARE(shown.first, shown.second);

        g->stepDivisionSize(99, 1);
        g->stepOffset(99, 2);
        t->scrollToItem(g->m_waveformItems[99]->child(2));
        shown = boxesAndRowsInView();
        QVERIFY(shown.first.contains(99) && !shown.first.contains(0));
        QCOMPARE(shown.first, shown.second);
        QCOMPARE(g->divisionSpinBox(99)->value(), g->divisionSize(99));
        QCOMPARE(g->m_offsetSpinBoxes[99]->value(), 2 * g->divisionSize(99));
    }

private:
    VornGraph *graph() const { return m_h->graph.get(); }
    QTreeWidget *tree() const { return graph()->m_infoTree; }
    // "c" is waveform c's row, "c/Range-" and "c// Div" two of its children.
    QTreeWidgetItem *row(const QString &path) const
    {
        const QList<QTreeWidgetItem *> tops = tree()->findItems(path.section('/', 0, 0), Qt::MatchExactly, 0);
        const QString child = path.section('/', 1);
        if (tops.isEmpty() || child.isEmpty())
            return tops.value(0);
        for (int i = 0; i < tops.first()->childCount(); ++i)
            if (tops.first()->child(i)->text(0) == child)
                return tops.first()->child(i);
        return nullptr;
    }

    // On the name, clear of the check box and the controls in the value column.
    QPoint namePos(QTreeWidgetItem *item) const
    {
        return {tree()->columnViewportPosition(0) + tree()->columnWidth(0) - 5, tree()->visualItemRect(item).center().y()};
    }

    // Right-clicks at pos and picks choice from the menu if one opens; a disabled or empty choice
    // closes it. Returns the menu's entries, the disabled ones marked.
    QStringList rightClick(const QPoint &pos, const QString &choice)
    {
        QStringList seen;
        QTimer::singleShot(0, this, [&seen, choice] {
            auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
            if (!menu)
                return;
            for (QAction *action : menu->actions())
                seen << action->text() + (action->isEnabled() ? "" : " (off)");
            for (QAction *action : menu->actions()) {
                if (action->text() == choice)
                    QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(action).center());
            }
            if (menu->isVisible())
                menu->close();
        });
        // The event a right-click turns into; QTest's click does not make one on this platform.
        QContextMenuEvent event(QContextMenuEvent::Mouse, pos, tree()->viewport()->mapToGlobal(pos));
        QApplication::sendEvent(tree()->viewport(), &event);
        QTest::qWait(20);
        return seen;
    }

    std::unique_ptr<GraphHarness> m_h;
};

QTEST_MAIN(TstVornGraphTree)
#include "tst_vorngraphtree.moc"
