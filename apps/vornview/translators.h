#ifndef TRANSLATORS_H
#define TRANSLATORS_H

class QCoreApplication;

// Installs the library's, the viewer's and Qt's own translations for the system locale.
void installTranslators(QCoreApplication &app);

#endif
