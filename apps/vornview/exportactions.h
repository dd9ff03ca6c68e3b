#ifndef EXPORTACTIONS_H
#define EXPORTACTIONS_H

#include <QObject>
#include <QSize>
#include <QString>

class QAction;
class QChartView;
class QMainWindow;
class WaveformWindow;

// The chart as it is on screen (traces, envelopes, violation marks, cursors, labels) written to
// path at size: SVG when path ends in .svg, PNG otherwise. False, with the reason, on failure.
bool exportChartImage(QChartView *view, const QString &path, const QSize &size, QString *error = nullptr);

// File ▸ Export Image… and File ▸ Export Report… for one open capture; the report is the one
// vorn check writes, of the check the window shows (its own envelopes or a Check Against).
class ExportActions : public QObject
{
    Q_OBJECT

public:
    ExportActions(QMainWindow *window, WaveformWindow *document, const QString &filePath);

    QAction *imageAction() const { return m_image; }
    QAction *reportAction() const { return m_report; }
    // The golden capture whose envelopes the window checks against, named in the report.
    void setReference(const QString &path) { m_reference = path; }
    // The report of the capture's check, written to path; false, with the reason, on failure.
    bool exportReport(const QString &path, QString *error = nullptr) const;

private:
    void onExportImage();
    void onExportReport();
    QChartView *chartView() const;

    QMainWindow *m_window;
    WaveformWindow *m_document;
    QString m_filePath;
    QString m_reference;
    QAction *m_image;
    QAction *m_report;
};

#endif
