<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>EnvelopeEditorController</name>
    <message>
        <source>Move Knot</source>
        <translation>Knoten verschieben</translation>
    </message>
    <message>
        <source>Toggle Knot</source>
        <translation>Knoten umschalten</translation>
    </message>
    <message>
        <source>Add Knot</source>
        <translation>Knoten hinzufügen</translation>
    </message>
    <message>
        <source>Delete Knot</source>
        <translation>Knoten löschen</translation>
    </message>
    <message>
        <source>Set Knot</source>
        <translation>Knoten setzen</translation>
    </message>
</context>
<context>
    <name>EnvelopeEditorOverlay</name>
    <message>
        <source>Select region on chart...</source>
        <translation>Bereich im Diagramm auswählen …</translation>
    </message>
    <message>
        <source>Points:</source>
        <translation>Punkte:</translation>
    </message>
    <message>
        <source>Apply</source>
        <translation>Übernehmen</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Adjust envelope points</source>
        <translation>Hüllkurvenpunkte anpassen</translation>
    </message>
    <message>
        <source>Envelope of %1</source>
        <translation>Hüllkurve von %1</translation>
    </message>
    <message>
        <source>Drag: move the nearer limit
Shift+drag: move in time
Double-click: add a knot
Delete: remove
Enter: type values
G: switch off (a gap) or on</source>
        <translation>Ziehen: die nähere Grenze verschieben
Umschalt+Ziehen: zeitlich verschieben
Doppelklick: Knoten hinzufügen
Entf: entfernen
Eingabe: Werte eintippen
G: ausschalten (eine Lücke) oder einschalten</translation>
    </message>
</context>
<context>
    <name>ViolationList</name>
    <message>
        <source>Waveform</source>
        <translation>Signal</translation>
    </message>
    <message>
        <source>Start</source>
        <translation>Beginn</translation>
    </message>
    <message>
        <source>Length</source>
        <translation>Länge</translation>
    </message>
    <message>
        <source>Worst excess</source>
        <translation>Größte Überschreitung</translation>
    </message>
    <message>
        <source>no violations</source>
        <translation>keine Verletzungen</translation>
    </message>
    <message>
        <source>violation %1 of %2</source>
        <translation>Verletzung %1 von %2</translation>
    </message>
    <message>
        <source>wrapped to the first violation</source>
        <translation>zurück zur ersten Verletzung</translation>
    </message>
    <message>
        <source>wrapped to the last violation</source>
        <translation>weiter zur letzten Verletzung</translation>
    </message>
</context>
<context>
    <name>VornGraph</name>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>Value</source>
        <translation>Wert</translation>
    </message>
    <message>
        <source>Invalid sample interval in &apos;%1&apos;: %2 s
(minimum: 1 ps)</source>
        <translation>Ungültiges Abtastintervall in „%1“: %2 s
(mindestens 1 ps)</translation>
    </message>
    <message>
        <source>Time</source>
        <translation>Zeit</translation>
    </message>
    <message>
        <source>/ Div</source>
        <translation>/ Div</translation>
    </message>
    <message>
        <source>Range+</source>
        <translation>Bereich+</translation>
    </message>
    <message>
        <source>Offset</source>
        <translation>Versatz</translation>
    </message>
    <message>
        <source>Range-</source>
        <translation>Bereich−</translation>
    </message>
    <message>
        <source>ΔSample</source>
        <translation>ΔAbtastung</translation>
    </message>
    <message>
        <source>Samples</source>
        <translation>Abtastwerte</translation>
    </message>
    <message>
        <source>Max</source>
        <translation>Max</translation>
    </message>
    <message>
        <source>Avg</source>
        <translation>Mittel</translation>
    </message>
    <message>
        <source>Min</source>
        <translation>Min</translation>
    </message>
    <message>
        <source>Edit Envelope</source>
        <translation>Hüllkurve bearbeiten</translation>
    </message>
    <message>
        <source>Delete Envelope</source>
        <translation>Hüllkurve löschen</translation>
    </message>
    <message>
        <source>t = —</source>
        <translation>t = —</translation>
    </message>
    <message>
        <source>t = %1   %2</source>
        <translation>t = %1   %2</translation>
    </message>
    <message>
        <source>t1 = %1   t2 = %2   Δt = %3   1/Δt = %4</source>
        <translation>t1 = %1   t2 = %2   Δt = %3   1/Δt = %4</translation>
    </message>
    <message>
        <source>%1: %2 → %3 (Δ %4)</source>
        <translation>%1: %2 → %3 (Δ %4)</translation>
    </message>
    <message numerus="yes">
        <source>%n knot(s)</source>
        <translation>
            <numerusform>%n Knoten</numerusform>
            <numerusform>%n Knoten</numerusform>
        </translation>
    </message>
    <message>
        <source>Knot %1 of %2: %3
upper %4, lower %5</source>
        <translation>Knoten %1 von %2: %3
oben %4, unten %5</translation>
    </message>
    <message>
        <source>%1/div</source>
        <translation>%1/Div</translation>
    </message>
    <message numerus="yes">
        <source>%n without handles here:
zoom in to reach them</source>
        <translation>
            <numerusform>%n davon ohne Griffe hier:
zum Erreichen hineinzoomen</numerusform>
            <numerusform>%n davon ohne Griffe hier:
zum Erreichen hineinzoomen</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>WaveformWindow</name>
    <message>
        <source>File</source>
        <translation>Datei</translation>
    </message>
    <message>
        <source>Save</source>
        <translation>Speichern</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>Envelope</source>
        <translation>Hüllkurve</translation>
    </message>
    <message>
        <source>Edit</source>
        <translation>Bearbeiten</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>Reading waveform file failed</source>
        <translation>Lesen der Signaldatei fehlgeschlagen</translation>
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
        <source>Could not read from waveform file: %1</source>
        <translation>Signaldatei konnte nicht gelesen werden: %1</translation>
    </message>
    <message>
        <source>Could not read info of waveform %1/%2: %3</source>
        <translation>Angaben zu Signal %1/%2 konnten nicht gelesen werden: %3</translation>
    </message>
    <message>
        <source>Could not read data of waveform %1/%2: %3</source>
        <translation>Daten von Signal %1/%2 konnten nicht gelesen werden: %3</translation>
    </message>
    <message>
        <source>Reading %1 (%2 of %3)</source>
        <translation>Lese %1 (%2 von %3)</translation>
    </message>
    <message>
        <source>Delete Envelope</source>
        <translation>Hüllkurve löschen</translation>
    </message>
    <message>
        <source>Do you really want to delete the envelope?</source>
        <translation>Wollen Sie die Hüllkurve wirklich löschen?</translation>
    </message>
    <message>
        <source>Next Violation</source>
        <translation>Nächste Verletzung</translation>
    </message>
    <message>
        <source>Previous Violation</source>
        <translation>Vorherige Verletzung</translation>
    </message>
    <message>
        <source>%1: pass</source>
        <translation>%1: bestanden</translation>
    </message>
    <message>
        <source>%1: fail, %2 violations, first at %3</source>
        <translation>%1: nicht bestanden, %2 Verletzungen, erste bei %3</translation>
    </message>
    <message>
        <source>%1 was changed or replaced on disk since it was read; nothing was written. Reload it, or save the envelopes as a new file.</source>
        <translation>%1 wurde seit dem Lesen auf dem Datenträger geändert oder ersetzt; es wurde nichts geschrieben. Laden Sie die Datei neu oder speichern Sie die Hüllkurven in einer neuen Datei.</translation>
    </message>
    <message>
        <source>%1: shift %2</source>
        <translation>%1: Verschiebung %2</translation>
    </message>
    <message>
        <source>%1: %2</source>
        <translation>%1: %2</translation>
    </message>
    <message>
        <source>no waveform has an envelope of its name in %1</source>
        <translation>kein Signal hat eine Hüllkurve seines Namens in %1</translation>
    </message>
    <message>
        <source>%1: fail, %2</source>
        <translation>%1: nicht bestanden, %2</translation>
    </message>
    <message>
        <source>%1: fail, %2 of the envelope without samples</source>
        <translation>%1: nicht bestanden, %2 der Hüllkurve ohne Werte</translation>
    </message>
</context>
</TS>
