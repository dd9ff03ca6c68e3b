<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>CheckAgainst</name>
    <message>
        <source>Check Against…</source>
        <translation>Prüfen gegen…</translation>
    </message>
    <message>
        <source>Check Against</source>
        <translation>Prüfen gegen</translation>
    </message>
    <message>
        <source>Violations</source>
        <translation>Verletzungen</translation>
    </message>
    <message>
        <source>None</source>
        <translation>Keine</translation>
    </message>
    <message>
        <source>Best fit within</source>
        <translation>Beste Lage innerhalb</translation>
    </message>
    <message>
        <source>Trigger crossing</source>
        <translation>Triggerdurchgang</translation>
    </message>
    <message>
        <source>Alignment:</source>
        <translation>Ausrichtung:</translation>
    </message>
    <message>
        <source>Largest shift:</source>
        <translation>Größte Verschiebung:</translation>
    </message>
    <message>
        <source>Trigger level:</source>
        <translation>Triggerpegel:</translation>
    </message>
    <message>
        <source>Edge:</source>
        <translation>Flanke:</translation>
    </message>
    <message>
        <source>rising</source>
        <translation>steigend</translation>
    </message>
    <message>
        <source>falling</source>
        <translation>fallend</translation>
    </message>
    <message>
        <source>The largest shift must be a time above zero.</source>
        <translation>Die größte Verschiebung muss eine Zeit über null sein.</translation>
    </message>
    <message>
        <source>The trigger level must be a number.</source>
        <translation>Der Triggerpegel muss eine Zahl sein.</translation>
    </message>
    <message>
        <source>sigrok session files (*.sr);;All files (*)</source>
        <translation>sigrok-Sitzungsdateien (*.sr);;Alle Dateien (*)</translation>
    </message>
    <message>
        <source>Could not check against %1: %2</source>
        <translation>Prüfen gegen %1 nicht möglich: %2</translation>
    </message>
</context>
<context>
    <name>EnvelopeTools</name>
    <message>
        <source>Undo</source>
        <translation>Rückgängig</translation>
    </message>
    <message>
        <source>Redo</source>
        <translation>Wiederholen</translation>
    </message>
    <message>
        <source>Edit</source>
        <translation>Bearbeiten</translation>
    </message>
    <message>
        <source>Widen…</source>
        <translation>Aufweiten…</translation>
    </message>
    <message>
        <source>Make From Captures…</source>
        <translation>Aus Aufnahmen erstellen…</translation>
    </message>
    <message>
        <source>Add Region</source>
        <translation>Bereich hinzufügen</translation>
    </message>
    <message>
        <source>Edit Knot…</source>
        <translation>Knoten bearbeiten…</translation>
    </message>
    <message>
        <source>Delete Envelope</source>
        <translation>Hüllkurve löschen</translation>
    </message>
    <message>
        <source>New Envelope</source>
        <translation>Neue Hüllkurve</translation>
    </message>
    <message>
        <source>Apply Edit</source>
        <translation>Bearbeitung übernehmen</translation>
    </message>
    <message>
        <source>%1 has no envelope to widen.</source>
        <translation>%1 hat keine Hüllkurve zum Aufweiten.</translation>
    </message>
    <message>
        <source>Apply or cancel the running edit first.</source>
        <translation>Übernehmen oder verwerfen Sie zuerst die laufende Bearbeitung.</translation>
    </message>
    <message>
        <source>Widen by amounts of zero or more.</source>
        <translation>Aufweiten nur um Beträge von null oder mehr.</translation>
    </message>
    <message>
        <source>Widen Envelope</source>
        <translation>Hüllkurve aufweiten</translation>
    </message>
    <message>
        <source>Select the waveform the envelope is for.</source>
        <translation>Wählen Sie die Kurve, für die die Hüllkurve gilt.</translation>
    </message>
    <message>
        <source>Choose at least one capture.</source>
        <translation>Wählen Sie mindestens eine Aufnahme.</translation>
    </message>
    <message>
        <source>Select a waveform with an envelope first.</source>
        <translation>Wählen Sie zuerst eine Kurve mit Hüllkurve.</translation>
    </message>
    <message>
        <source>Time (±dx):</source>
        <translation>Zeit (±dx):</translation>
    </message>
    <message>
        <source>Value (±dy, or % of the band):</source>
        <translation>Wert (±dy oder % des Bands):</translation>
    </message>
    <message>
        <source>Plus % of the value:</source>
        <translation>Plus % des Werts:</translation>
    </message>
    <message>
        <source>The percentage of the value must be zero or more, such as 5 %.</source>
        <translation>Der Prozentsatz des Werts muss null oder mehr sein, etwa 5 %.</translation>
    </message>
    <message>
        <source>The time must be zero or more, such as 20 us.</source>
        <translation>Die Zeit muss null oder mehr sein, etwa 20 us.</translation>
    </message>
    <message>
        <source>The value must be zero or more, such as 50 m%1 or 5 %.</source>
        <translation>Der Wert muss null oder mehr sein, etwa 50 m%1 oder 5 %.</translation>
    </message>
    <message>
        <source>Make From Captures</source>
        <translation>Aus Aufnahmen erstellen</translation>
    </message>
    <message>
        <source>Choose Good Captures of %1</source>
        <translation>Gute Aufnahmen von %1 wählen</translation>
    </message>
    <message>
        <source>sigrok sessions (*.sr);;All files (*)</source>
        <translation>sigrok-Sitzungen (*.sr);;Alle Dateien (*)</translation>
    </message>
    <message>
        <source>Edit Knot</source>
        <translation>Knoten bearbeiten</translation>
    </message>
    <message>
        <source>Select a knot first.</source>
        <translation>Wählen Sie zuerst einen Knoten.</translation>
    </message>
    <message>
        <source>Knot %1</source>
        <translation>Knoten %1</translation>
    </message>
    <message>
        <source>Time:</source>
        <translation>Zeit:</translation>
    </message>
    <message>
        <source>Upper:</source>
        <translation>Oben:</translation>
    </message>
    <message>
        <source>Lower:</source>
        <translation>Unten:</translation>
    </message>
    <message>
        <source>Type numbers with an optional prefix and unit, such as 2.5 ms or 3.3 %1.</source>
        <translation>Geben Sie Zahlen mit Präfix und Einheit ein, etwa 2.5 ms oder 3.3 %1.</translation>
    </message>
    <message>
        <source>The time must be %1 or later.</source>
        <translation>Die Zeit muss %1 oder später sein.</translation>
    </message>
    <message>
        <source>The time must lie between %1 and %2.</source>
        <translation>Die Zeit muss zwischen %1 und %2 liegen.</translation>
    </message>
    <message>
        <source>Fit to Waveform</source>
        <translation>An Kurve anpassen</translation>
    </message>
    <message>
        <source>Make From One Capture</source>
        <translation>Aus einer Aufnahme erstellen</translation>
    </message>
    <message>
        <source>Make From %1 Captures</source>
        <translation>Aus %1 Aufnahmen erstellen</translation>
    </message>
    <message>
        <source>Switch Knot Off/On</source>
        <translation>Knoten aus-/einschalten</translation>
    </message>
</context>
<context>
    <name>ExportActions</name>
    <message>
        <source>Export Image</source>
        <translation>Bild exportieren</translation>
    </message>
    <message>
        <source> px</source>
        <translation> px</translation>
    </message>
    <message>
        <source>Width:</source>
        <translation>Breite:</translation>
    </message>
    <message>
        <source>Height:</source>
        <translation>Höhe:</translation>
    </message>
    <message>
        <source>Export Image…</source>
        <translation>Bild exportieren…</translation>
    </message>
    <message>
        <source>Export Report…</source>
        <translation>Bericht exportieren…</translation>
    </message>
    <message>
        <source>PNG image (*.png);;SVG image (*.svg)</source>
        <translation>PNG-Bild (*.png);;SVG-Bild (*.svg)</translation>
    </message>
    <message>
        <source>Could not write %1: %2</source>
        <translation>%1 konnte nicht geschrieben werden: %2</translation>
    </message>
    <message>
        <source>Wrote %1</source>
        <translation>%1 geschrieben</translation>
    </message>
    <message>
        <source>no waveform has an envelope to check against</source>
        <translation>keine Kurve hat eine Hüllkurve, gegen die geprüft werden kann</translation>
    </message>
    <message>
        <source>Export Report</source>
        <translation>Bericht exportieren</translation>
    </message>
    <message>
        <source>HTML report (*.html)</source>
        <translation>HTML-Bericht (*.html)</translation>
    </message>
</context>
<context>
    <name>LiveRun</name>
    <message>
        <source>Acquire</source>
        <translation>Erfassen</translation>
    </message>
    <message>
        <source>Device…</source>
        <translation>Gerät…</translation>
    </message>
    <message>
        <source>Run</source>
        <translation>Laufen</translation>
    </message>
    <message>
        <source>Single</source>
        <translation>Einzeln</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>Stopp</translation>
    </message>
    <message>
        <source>Stop on Failure</source>
        <translation>Bei Fehler anhalten</translation>
    </message>
    <message>
        <source>Save Failures</source>
        <translation>Fehler speichern</translation>
    </message>
    <message>
        <source>Beep on Failure</source>
        <translation>Bei Fehler piepen</translation>
    </message>
    <message>
        <source>Make From Acquisitions…</source>
        <translation>Aus Erfassungen erstellen…</translation>
    </message>
    <message>
        <source>Open Last Failure</source>
        <translation>Letzten Fehler öffnen</translation>
    </message>
    <message>
        <source>Device</source>
        <translation>Gerät</translation>
    </message>
    <message>
        <source>Driver:</source>
        <translation>Treiber:</translation>
    </message>
    <message>
        <source>Connection:</source>
        <translation>Verbindung:</translation>
    </message>
    <message>
        <source>Scan</source>
        <translation>Suchen</translation>
    </message>
    <message>
        <source>Channels:</source>
        <translation>Kanäle:</translation>
    </message>
    <message>
        <source>Sample rate:</source>
        <translation>Abtastrate:</translation>
    </message>
    <message>
        <source>Samples:</source>
        <translation>Abtastwerte:</translation>
    </message>
    <message>
        <source>Options:</source>
        <translation>Optionen:</translation>
    </message>
    <message>
        <source>Save failures to:</source>
        <translation>Fehler speichern in:</translation>
    </message>
    <message>
        <source>No device found.</source>
        <translation>Kein Gerät gefunden.</translation>
    </message>
    <message>
        <source>Make From Acquisitions</source>
        <translation>Aus Erfassungen erstellen</translation>
    </message>
    <message>
        <source>Acquisitions:</source>
        <translation>Erfassungen:</translation>
    </message>
    <message>
        <source>A1: amplitude=9; A2: offset=1</source>
        <translation>A1: amplitude=9; A2: offset=1</translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1: %2</translation>
    </message>
    <message>
        <source>The number of samples must be a count above zero.</source>
        <translation>Die Zahl der Abtastwerte muss eine ganze Zahl über null sein.</translation>
    </message>
    <message>
        <source>running</source>
        <translation>läuft</translation>
    </message>
    <message>
        <source>Make From Acquisitions stopped before it had its acquisitions</source>
        <translation>Aus Erfassungen erstellen wurde beendet, bevor alle Erfassungen vorlagen</translation>
    </message>
    <message>
        <source>stopped</source>
        <translation>angehalten</translation>
    </message>
    <message>
        <source>Tested: %1
Passed: %2
Failed: %3
Fail rate: %4 %
Acquisitions/s: %5</source>
        <translation>Geprüft: %1
Bestanden: %2
Durchgefallen: %3
Fehlerquote: %4 %
Erfassungen/s: %5</translation>
    </message>
    <message>
        <source>
Last failure: %1 s into the run</source>
        <translation>
Letzter Fehler: %1 s nach Laufbeginn</translation>
    </message>
    <message>
        <source>
Device: %1, %2</source>
        <translation>
Gerät: %1, %2</translation>
    </message>
    <message>
        <source>gathering: %1 to go</source>
        <translation>sammelt: noch %1</translation>
    </message>
</context>
<context>
    <name>MeasurementsDock</name>
    <message>
        <source>Measurements</source>
        <translation>Messungen</translation>
    </message>
    <message>
        <source>Measurement</source>
        <translation>Messung</translation>
    </message>
    <message>
        <source>Value</source>
        <translation>Wert</translation>
    </message>
    <message>
        <source>Limit</source>
        <translation>Grenze</translation>
    </message>
    <message>
        <source>none</source>
        <translation>keiner</translation>
    </message>
    <message>
        <source>Set Limit</source>
        <translation>Grenze setzen</translation>
    </message>
    <message>
        <source>%1 of %2, in %3</source>
        <translation>%1 von %2, in %3</translation>
    </message>
    <message>
        <source>At least:</source>
        <translation>Mindestens:</translation>
    </message>
    <message>
        <source>At most:</source>
        <translation>Höchstens:</translation>
    </message>
    <message>
        <source>Give at least one bound, or remove the limit.</source>
        <translation>Geben Sie mindestens eine Schranke an oder entfernen Sie die Grenze.</translation>
    </message>
    <message>
        <source>Set Limit…</source>
        <translation>Grenze setzen…</translation>
    </message>
    <message>
        <source>Remove Limit</source>
        <translation>Grenze entfernen</translation>
    </message>
    <message>
        <source>The limit was not stored: %1</source>
        <translation>Die Grenze wurde nicht gespeichert: %1</translation>
    </message>
    <message>
        <source>The limit was not removed: %1</source>
        <translation>Die Grenze wurde nicht entfernt: %1</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>not enough memory for %1 samples</source>
        <translation>nicht genug Speicher für %1 Werte</translation>
    </message>
    <message>
        <source>no waveform named %1</source>
        <translation>keine Kurve namens %1</translation>
    </message>
    <message>
        <source>&apos;%1&apos; is not KEY=VALUE</source>
        <translation>„%1“ ist nicht SCHLÜSSEL=WERT</translation>
    </message>
</context>
<context>
    <name>CaptureOpening</name>
    <message>
        <source>Opening Capture</source>
        <translation>Aufzeichnung wird geöffnet</translation>
    </message>
    <message>
        <source>Reading %1…</source>
        <translation>%1 wird gelesen…</translation>
    </message>
</context>
<context>
    <name>ViewerWindow</name>
    <message>
        <source>Open a capture with File ▸ Open…, or drop a .sr file here.</source>
        <translation>Öffnen Sie eine Aufzeichnung mit Datei ▸ Öffnen… oder ziehen Sie eine .sr-Datei hierher.</translation>
    </message>
    <message>
        <source>Open…</source>
        <translation>Öffnen…</translation>
    </message>
    <message>
        <source>Open Recent</source>
        <translation>Zuletzt geöffnet</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Help</source>
        <translation>Hilfe</translation>
    </message>
    <message>
        <source>About VornView</source>
        <translation>Über VornView</translation>
    </message>
    <message>
        <source>About Qt</source>
        <translation>Über Qt</translation>
    </message>
    <message>
        <source>File</source>
        <translation>Datei</translation>
    </message>
    <message>
        <source>VornView</source>
        <translation>VornView</translation>
    </message>
    <message>
        <source>%1[*] - VornView</source>
        <translation>%1[*] – VornView</translation>
    </message>
    <message>
        <source>Unsaved Changes</source>
        <translation>Ungespeicherte Änderungen</translation>
    </message>
    <message>
        <source>Envelope curves have been changed. Save changes?</source>
        <translation>Hüllkurven wurden geändert. Änderungen speichern?</translation>
    </message>
    <message>
        <source>Open Capture</source>
        <translation>Aufzeichnung öffnen</translation>
    </message>
    <message>
        <source>sigrok sessions (*.sr);;All files (*)</source>
        <translation>sigrok-Sitzungen (*.sr);;Alle Dateien (*)</translation>
    </message>
    <message>
        <source>&amp;%1 %2</source>
        <translation>&amp;%1 %2</translation>
    </message>
    <message>
        <source>No Recent Files</source>
        <translation>Keine zuletzt geöffneten Dateien</translation>
    </message>
    <message>
        <source>Clear Menu</source>
        <translation>Liste leeren</translation>
    </message>
    <message>
        <source>&lt;h3&gt;VornView %1&lt;/h3&gt;&lt;p&gt;Shows sigrok captures and edits their tolerance envelopes.&lt;/p&gt;</source>
        <translation>&lt;h3&gt;VornView %1&lt;/h3&gt;&lt;p&gt;Zeigt sigrok-Aufzeichnungen und bearbeitet ihre Toleranzbänder.&lt;/p&gt;</translation>
    </message>
    <message>
        <source>Saving failed</source>
        <translation>Speichern fehlgeschlagen</translation>
    </message>
    <message>
        <source>The envelopes could not be saved in %1.

%2</source>
        <translation>Die Hüllkurven konnten nicht in %1 gespeichert werden.

%2</translation>
    </message>
    <message>
        <source>Save</source>
        <translation>Speichern</translation>
    </message>
    <message>
        <source>Save As…</source>
        <translation>Speichern unter…</translation>
    </message>
    <message>
        <source>Reload</source>
        <translation>Neu laden</translation>
    </message>
    <message>
        <source>View</source>
        <translation>Ansicht</translation>
    </message>
    <message>
        <source>Stacked</source>
        <translation>Gestapelt</translation>
    </message>
    <message>
        <source>Overlaid</source>
        <translation>Überlagert</translation>
    </message>
    <message>
        <source>Cursors</source>
        <translation>Cursor</translation>
    </message>
    <message>
        <source>Save Capture As</source>
        <translation>Aufzeichnung speichern unter</translation>
    </message>
    <message>
        <source>sigrok sessions (*.sr)</source>
        <translation>sigrok-Sitzungen (*.sr)</translation>
    </message>
    <message>
        <source>Read %1 again and discard the changed envelopes?</source>
        <translation>%1 neu lesen und die geänderten Hüllkurven verwerfen?</translation>
    </message>
    <message>
        <source>The envelope of %1 spans no time. Drag across the part of the waveform it should limit.</source>
        <translation>Die Hüllkurve von %1 umfasst keine Zeitspanne. Ziehen Sie über den Teil der Kurve, den sie begrenzen soll.</translation>
    </message>
    <message>
        <source>No sample of %1 lies under the envelope, so it would check nothing. Drag across the part of the waveform it should limit.</source>
        <translation>Unter der Hüllkurve liegt kein Abtastwert von %1, sie würde also nichts prüfen. Ziehen Sie über den Teil der Kurve, den sie begrenzen soll.</translation>
    </message>
    <message>
        <source>Envelope Not Applied</source>
        <translation>Hüllkurve nicht übernommen</translation>
    </message>
    <message>
        <source>Reading waveform file failed</source>
        <translation>Lesen der Signaldatei fehlgeschlagen</translation>
    </message>
    <message>
        <source>Envelope curves not read</source>
        <translation>Hüllkurven nicht gelesen</translation>
    </message>
    <message>
        <source>These envelope curves in %1 could not be read; their waveforms are shown without them:
%2</source>
        <translation>Diese Hüllkurven in %1 konnten nicht gelesen werden; ihre Signale werden ohne sie gezeigt:
%2</translation>
    </message>
    <message>
        <source>Could not read %1: %2</source>
        <translation>%1 konnte nicht gelesen werden: %2</translation>
    </message>
    <message>
        <source>Could not read waveform %1/%2 of %3: %4</source>
        <translation>Signal %1/%2 von %3 konnte nicht gelesen werden: %4</translation>
    </message>
    <message>
        <source>Could not read %1: %2 holds the most samples; all waveforms together: %3</source>
        <translation>%1 konnte nicht gelesen werden: %2 hat die meisten Abtastwerte; alle Signale zusammen: %3</translation>
    </message>
</context>
<context>
    <name>vornview</name>
    <message>
        <source>Shows sigrok captures and edits their tolerance envelopes.</source>
        <translation>Zeigt sigrok-Aufzeichnungen und bearbeitet ihre Toleranzbänder.</translation>
    </message>
    <message>
        <source>The capture to open (.sr).</source>
        <translation>Die zu öffnende Aufzeichnung (.sr).</translation>
    </message>
    <message>
        <source>Start editing the envelope of waveform &lt;n&gt;.</source>
        <translation>Die Hüllkurve von Signal &lt;n&gt; bearbeiten.</translation>
    </message>
    <message>
        <source>Write the window to &lt;png&gt; and exit.</source>
        <translation>Das Fenster als &lt;png&gt; speichern und beenden.</translation>
    </message>
    <message>
        <source>Print when the chart is first painted.</source>
        <translation>Ausgeben, wann das Diagramm zuerst gezeichnet ist.</translation>
    </message>
    <message>
        <source>bad arguments; see --help</source>
        <translation>falsche Argumente; siehe --help</translation>
    </message>
    <message>
        <source>there is no waveform %1</source>
        <translation>es gibt kein Signal %1</translation>
    </message>
</context>
</TS>
