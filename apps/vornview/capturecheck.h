#ifndef VORNVIEW_CAPTURECHECK_H
#define VORNVIEW_CAPTURECHECK_H

#include <QString>

// What the viewer finds out about a capture before the window reads it, so that its messages can
// name the file: why it cannot be opened at all (not a capture, or samples beyond the memory the
// machine can spare), or empty when it can.
QString captureOpenProblem(const QString &path);
// The envelope curves stored in the capture that could not be read, one line each with where and
// why; empty when there are none.
QString unreadableCurvesOf(const QString &path);

#endif
