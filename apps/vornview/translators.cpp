#include "translators.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

void installTranslators(QCoreApplication &app)
{
    const QLocale locale;
    const QString qtFolder = QLibraryInfo::path(QLibraryInfo::TranslationsPath);
    const struct
    {
        const char *name;
        QString folder;
    } catalogues[] = {{"qtbase", qtFolder}, {"vorngraph", QStringLiteral(":/i18n")}, {"vornview", QStringLiteral(":/i18n")}};
    for (const auto &catalogue : catalogues) {
        auto *translator = new QTranslator(&app);
        if (translator->load(locale, QLatin1String(catalogue.name), QStringLiteral("_"), catalogue.folder))
            app.installTranslator(translator);
        else
            delete translator; // no catalogue for this language: English stays
    }
}
