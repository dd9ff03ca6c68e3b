#include "exportactions.h"

#include "report.h"
#include "vorngraph.h"
#include "waveformwindow.h"

#include <QAction>
#include <QChart>
#include <QChartView>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QImage>
#include <QMainWindow>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QSaveFile>
#include <QSpinBox>
#include <QStatusBar>
#include <QSvgGenerator>
#include <QXYSeries>

namespace {

constexpr int MAX_IMAGE_SIDE = 16384;

// The picture's size, the chart's own offered first. False when cancelled.
bool askSize(QWidget *parent, QSize &size)
{
    QDialog dialog(parent);
    dialog.setWindowTitle(ExportActions::tr("Export Image"));
    auto *width = new QSpinBox(&dialog);
    auto *height = new QSpinBox(&dialog);
    for (QSpinBox *box : {width, height}) {
        box->setRange(16, MAX_IMAGE_SIDE);
        box->setSuffix(ExportActions::tr(" px"));
    }
    width->setValue(size.width());
    height->setValue(size.height());
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    auto *form = new QFormLayout(&dialog);
    form->addRow(ExportActions::tr("Width:"), width);
    form->addRow(ExportActions::tr("Height:"), height);
    form->addRow(buttons);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    if (dialog.exec() != QDialog::Accepted)
        return false;
    size = QSize(width->value(), height->value());
    return true;
}

// Series drawn through OpenGL are painted over the viewport, outside the scene that a picture is
// rendered from: they are drawn by the scene while it is.
class SceneDrawnSeries
{
public:
    explicit SceneDrawnSeries(QChart *chart)
    {
        for (QAbstractSeries *series : chart->series()) {
            if (series->useOpenGL()) {
                series->setUseOpenGL(false);
                m_held.append(series);
            }
        }
    }
    ~SceneDrawnSeries()
    {
        for (QAbstractSeries *series : qAsConst(m_held))
            series->setUseOpenGL(true);
    }

private:
    QList<QAbstractSeries *> m_held;
};

void paintChart(QChartView *view, QPainter &painter, const QSize &size)
{
    painter.fillRect(QRect(QPoint(), size), view->backgroundBrush());
    view->render(&painter, QRectF(QPointF(), size), view->viewport()->rect());
}

} // namespace

bool exportChartImage(QChartView *view, const QString &path, const QSize &size, QString *error)
{
    SceneDrawnSeries sceneDrawn(view->chart());
    QSaveFile file(path);
    bool painted = file.open(QIODevice::WriteOnly);
    if (painted && path.endsWith(QLatin1String(".svg"), Qt::CaseInsensitive)) {
        QSvgGenerator svg;
        svg.setOutputDevice(&file);
        svg.setSize(size);
        svg.setViewBox(QRect(QPoint(), size));
        // CSS pixels, so that a browser shows the picture at the size asked.
        svg.setResolution(96);
        svg.setTitle(QFileInfo(path).completeBaseName());
        QPainter painter;
        painted = painter.begin(&svg);
        if (painted)
            paintChart(view, painter, size);
    } else if (painted) {
        QImage image(size, QImage::Format_RGB32);
        QPainter painter(&image);
        paintChart(view, painter, size);
        painter.end();
        painted = image.save(&file, "PNG");
    }
    if (painted && file.commit())
        return true;
    if (error)
        *error = file.errorString();
    return false;
}

ExportActions::ExportActions(QMainWindow *window, WaveformWindow *document, const QString &filePath)
    : QObject(document), m_window(window), m_document(document), m_filePath(filePath)
{
    m_image = new QAction(tr("Export Image…"), this);
    m_report = new QAction(tr("Export Report…"), this);
    connect(m_image, &QAction::triggered, this, &ExportActions::onExportImage);
    connect(m_report, &QAction::triggered, this, &ExportActions::onExportReport);
    // After the capture's own entries, before the closing separator and Quit.
    QMenu *file = document->fileMenu();
    QAction *closing = nullptr;
    for (QAction *a : file->actions())
        closing = a->isSeparator() ? a : closing;
    file->insertActions(closing, {m_image, m_report});
}

QChartView *ExportActions::chartView() const
{
    return m_document->graph()->findChild<QChartView *>();
}

void ExportActions::onExportImage()
{
    QString filter;
    QString path = QFileDialog::getSaveFileName(m_window, tr("Export Image"), QString(),
                                                tr("PNG image (*.png);;SVG image (*.svg)"), &filter);
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix().isEmpty())
        path += filter.contains(QLatin1String("svg")) ? QStringLiteral(".svg") : QStringLiteral(".png");
    QChartView *view = chartView();
    QSize size = view->viewport()->size();
    if (!askSize(m_window, size))
        return;
    QString error;
    if (!exportChartImage(view, path, size, &error))
        QMessageBox::warning(m_window, tr("Export Image"), tr("Could not write %1: %2").arg(path, error));
    else
        m_window->statusBar()->showMessage(tr("Wrote %1").arg(path), 5000);
}

bool ExportActions::exportReport(const QString &path, QString *error) const
{
    const VornGraph *graph = m_document->graph();
    const QStringList lines = m_document->envelopeCheckSummary().split(QLatin1Char('\n'));
    std::vector<ReportRow> rows;
    std::vector<FailurePictures> pictures;
    int drawn = 0;
    for (int i = 0; i < graph->waveformCount(); ++i) {
        if (!graph->hasEnvelope(i))
            continue;
        const WaveformData waveform = graph->waveformData(i);
        const EnvelopeCheckResult result = graph->envelopeCheckResult(i);
        rows.push_back({m_filePath, graph->waveformName(i), waveform.unit, result, lines.value(int(rows.size())), true, {}});
        pictures.emplace_back();
        if (!result.passed() && drawn++ < REPORT_PICTURE_LIMIT)
            pictures.back() = drawFailure(waveform, graph->envelope(i), graph->waveformShift(i));
    }
    if (rows.empty()) {
        if (error)
            *error = tr("no waveform has an envelope to check against");
        return false;
    }
    ReportInfo info;
    info.command = QStringLiteral("vornview %1").arg(m_filePath);
    info.title = QStringLiteral("vornview report");
    info.reference = m_reference;
    return writeReportFile(path, reportHtml(rows, {}, pictures, info), error);
}

void ExportActions::onExportReport()
{
    QString path = QFileDialog::getSaveFileName(m_window, tr("Export Report"), QString(), tr("HTML report (*.html)"));
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix().isEmpty())
        path += QStringLiteral(".html");
    QString error;
    if (!exportReport(path, &error))
        QMessageBox::warning(m_window, tr("Export Report"), tr("Could not write %1: %2").arg(path, error));
    else
        m_window->statusBar()->showMessage(tr("Wrote %1").arg(path), 5000);
}
