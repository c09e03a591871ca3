<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en">
<context>
    <name>AddDialog</name>
    <message>
        <source>&amp;Store it for the next start</source>
        <translation>Für den nächsten Start &amp;speichern</translation>
    </message>
    <message>
        <source>Add interface</source>
        <translation>Schnittstelle hinzufügen</translation>
    </message>
    <message>
        <source>&amp;Name:</source>
        <translation>&amp;Name:</translation>
    </message>
    <message>
        <source>&amp;Address:</source>
        <translation>&amp;Adresse:</translation>
    </message>
    <message>
        <source>unchanged</source>
        <translation>unverändert</translation>
    </message>
    <message>
        <source>%1 kbit/s</source>
        <translation>%1 kbit/s</translation>
    </message>
    <message>
        <source>&amp;Baud rate:</source>
        <translation>&amp;Baudrate:</translation>
    </message>
    <message>
        <source>ADDRESS[:PORT][:TCP|:UDP] of the gateway; a host name is replaced by its address</source>
        <translation>ADRESSE[:PORT][:TCP|:UDP] des Gateways; ein Rechnername wird durch seine Adresse ersetzt</translation>
    </message>
</context>
<context>
    <name>CanLog</name>
    <message>
        <source>frame &quot;%1&quot;: %2</source>
        <translation>Nachricht „%1“: %2</translation>
    </message>
    <message>
        <source>a # must separate identifier and data, as in 123#1122</source>
        <translation>ein # muss Identifier und Daten trennen, wie in 123#1122</translation>
    </message>
    <message>
        <source>the identifier must be hexadecimal, 0 to 7FF</source>
        <translation>der Identifier muss hexadezimal sein, 0 bis 7FF</translation>
    </message>
    <message>
        <source>the data must be pairs of hexadecimal digits</source>
        <translation>die Daten müssen Paare hexadezimaler Ziffern sein</translation>
    </message>
    <message>
        <source>more than 8 data bytes</source>
        <translation>mehr als 8 Datenbytes</translation>
    </message>
    <message>
        <source>not of the form (seconds) interface ID#DATA</source>
        <translation>nicht von der Form (Sekunden) Schnittstelle ID#DATEN</translation>
    </message>
    <message>
        <source>%1, line %2: %3</source>
        <translation>%1, Zeile %2: %3</translation>
    </message>
    <message>
        <source>remote frames are not supported</source>
        <translation>Remote-Frames werden nicht unterstützt</translation>
    </message>
    <message>
        <source>standard input</source>
        <translation>Standardeingabe</translation>
    </message>
    <message>
        <source>new</source>
        <translation>neu</translation>
    </message>
    <message>
        <source>missing</source>
        <translation>fehlt</translation>
    </message>
    <message>
        <source>rate</source>
        <translation>Rate</translation>
    </message>
    <message>
        <source>data</source>
        <translation>Daten</translation>
    </message>
    <message>
        <source>identifiers: %1 before, %2 after; different: %3</source>
        <translation>Identifier: %1 vorher, %2 nachher; verschieden: %3</translation>
    </message>
    <message>
        <source>; lines without a standard frame: %1</source>
        <translation>; Zeilen ohne Standard-Frame: %1</translation>
    </message>
</context>
<context>
    <name>Common</name>
    <message>
        <source>%1: %2 contradicts %3</source>
        <translation>%1: %2 widerspricht %3</translation>
    </message>
    <message>
        <source>port %1: must be 1 to 65535</source>
        <translation>Port %1: muss 1 bis 65535 sein</translation>
    </message>
    <message>
        <source>protocol %1: must be TCP or UDP</source>
        <translation>Protokoll %1: muss TCP oder UDP sein</translation>
    </message>
    <message>
        <source>&apos;%1&apos; is not an address like 192.168.1.70:30000:TCP</source>
        <translation>„%1“ ist keine Adresse wie 192.168.1.70:30000:TCP</translation>
    </message>
    <message>
        <source>port text %1: must be IP=ADDRESS:PORT:PROTOCOL</source>
        <translation>Porttext %1: muss IP=ADRESSE:PORT:PROTOKOLL sein</translation>
    </message>
    <message>
        <source>address %1: must be ADDRESS[:PORT][:TCP|:UDP]</source>
        <translation>Adresse %1: muss ADRESSE[:PORT][:TCP|:UDP] sein</translation>
    </message>
    <message>
        <source>&apos;%1&apos; is not an address like 192.168.1.70</source>
        <translation>„%1“ ist keine Adresse wie 192.168.1.70</translation>
    </message>
    <message>
        <source>the scan cannot be started; another one may be running</source>
        <translation>die Suche kann nicht beginnen; vielleicht läuft schon eine</translation>
    </message>
    <message>
        <source>the interface does not accept %1 %2</source>
        <translation>die Schnittstelle nimmt %1 %2 nicht an</translation>
    </message>
    <message>
        <source>no interface is stored under the name &apos;%1&apos;</source>
        <translation>unter dem Namen „%1“ ist keine Schnittstelle gespeichert</translation>
    </message>
    <message>
        <source>&apos;%1&apos; is stored for the whole system and cannot be removed</source>
        <translation>„%1“ ist für das ganze System gespeichert und kann nicht entfernt werden</translation>
    </message>
    <message>
        <source>the settings store %1 cannot be written</source>
        <translation>der Einstellungsspeicher %1 kann nicht geschrieben werden</translation>
    </message>
    <message>
        <source>other programs keep the settings store %1 locked</source>
        <translation>andere Programme sperren den Einstellungsspeicher %1</translation>
    </message>
    <message>
        <source>%1 cannot be loaded: %2</source>
        <translation>%1 kann nicht geladen werden: %2</translation>
    </message>
    <message>
        <source>%1 is not a CAN interface plugin: it does not provide %2</source>
        <translation>%1 ist kein Plugin für CAN-Schnittstellen: es bietet %2 nicht</translation>
    </message>
    <message>
        <source>plugin folder %1 does not exist</source>
        <translation>den Plugin-Ordner %1 gibt es nicht</translation>
    </message>
    <message>
        <source>plugin folder %1 contains no library (*.so)</source>
        <translation>im Plugin-Ordner %1 ist keine Bibliothek (*.so)</translation>
    </message>
    <message>
        <source>the settings store %1 cannot be read</source>
        <translation>der Einstellungsspeicher %1 kann nicht gelesen werden</translation>
    </message>
    <message>
        <source>filter %1: must be ID, ID:MASK, ID~MASK (all but these) or LOW-HIGH, hexadecimal, up to 7FF</source>
        <translation>Filter %1: muss ID, ID:MASKE, ID~MASKE (alle außer diesen) oder VON-BIS sein, hexadezimal, bis 7FF</translation>
    </message>
    <message>
        <source>closed</source>
        <translation>geschlossen</translation>
    </message>
    <message>
        <source>connecting</source>
        <translation>wird verbunden</translation>
    </message>
    <message>
        <source>open, no answer yet</source>
        <translation>offen, noch keine Antwort</translation>
    </message>
    <message>
        <source>connected</source>
        <translation>verbunden</translation>
    </message>
    <message>
        <source>silent for %1 s</source>
        <translation>seit %1 s stumm</translation>
    </message>
    <message>
        <source>lost, trying again</source>
        <translation>verloren, neuer Versuch läuft</translation>
    </message>
    <message>
        <source>%1, line %2: must be ID NAME, like 123 Amplifier left</source>
        <translation>%1, Zeile %2: muss ID NAME sein, wie 123 Verstärker links</translation>
    </message>
    <message>
        <source>%1 cannot be written: %2</source>
        <translation>%1 kann nicht geschrieben werden: %2</translation>
    </message>
    <message>
        <source>Recording ended: the disk of %1 is nearly full.</source>
        <translation>Aufnahme beendet: Der Datenträger von %1 ist fast voll.</translation>
    </message>
    <message>
        <source>not known</source>
        <translation>nicht bekannt</translation>
    </message>
    <message>
        <source>mean %1 %, peak %2 %</source>
        <translation>im Mittel %1 %, höchstens %2 %</translation>
    </message>
    <message>
        <source>  messages: received %1, sent %2, refused %3
  messages/s: mean %4, peak %5
  bus load: %6
</source>
        <translation>  Nachrichten: empfangen %1, gesendet %2, abgelehnt %3
  Nachrichten/s: im Mittel %4, höchstens %5
  Buslast: %6
</translation>
    </message>
    <message>
        <source>%1 to %2, %3 s
</source>
        <translation>%1 bis %2, %3 s
</translation>
    </message>
    <message>
        <source>  error %1, times: %2. %3
</source>
        <translation>  Fehler %1, Anzahl: %2. %3
</translation>
    </message>
    <message>
        <source>
Messages that this program lost because it was busy: %1
</source>
        <translation>
Nachrichten, die dieses Programm verlor, weil es beschäftigt war: %1
</translation>
    </message>
</context>
<context>
    <name>Table</name>
    <message>
        <source>Copy rows</source>
        <translation>Zeilen kopieren</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CBusloadPlot</name>
    <message>
        <source>Bus load</source>
        <translation>Buslast</translation>
    </message>
    <message>
        <source>%1: %2 %</source>
        <translation>%1: %2 %</translation>
    </message>
    <message>
        <source>%1: not known</source>
        <translation>%1: nicht bekannt</translation>
    </message>
    <message>
        <source>%1 %</source>
        <translation>%1 %</translation>
    </message>
    <message>
        <source>%1 s</source>
        <translation>%1 s</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CComparisonDialog</name>
    <message>
        <source>Reading ...</source>
        <translation>Wird gelesen ...</translation>
    </message>
    <message>
        <source>Comparison of two logs</source>
        <translation>Vergleich zweier Logs</translation>
    </message>
    <message>
        <source>ID</source>
        <translation>ID</translation>
    </message>
    <message>
        <source>Differs</source>
        <translation>Unterschied</translation>
    </message>
    <message>
        <source>Before [1/s]</source>
        <translation>Vorher [1/s]</translation>
    </message>
    <message>
        <source>After [1/s]</source>
        <translation>Nachher [1/s]</translation>
    </message>
    <message>
        <source>Data before</source>
        <translation>Daten vorher</translation>
    </message>
    <message>
        <source>Data after</source>
        <translation>Daten nachher</translation>
    </message>
    <message>
        <source>Before: %1
After: %2</source>
        <translation>Vorher: %1
Nachher: %2</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CEventModel</name>
    <message>
        <source>error %1</source>
        <translation>Fehler %1</translation>
    </message>
    <message>
        <source>code %1</source>
        <translation>Code %1</translation>
    </message>
    <message>
        <source>Time</source>
        <translation>Zeit</translation>
    </message>
    <message>
        <source>Interface</source>
        <translation>Schnittstelle</translation>
    </message>
    <message>
        <source>Number</source>
        <translation>Nummer</translation>
    </message>
    <message>
        <source>Times</source>
        <translation>Anzahl</translation>
    </message>
    <message>
        <source>Event</source>
        <translation>Ereignis</translation>
    </message>
    <message>
        <source>warning</source>
        <translation>Warnung</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CEventPanel</name>
    <message>
        <source>Whole text of the selected event</source>
        <translation>Ganzer Text des ausgewählten Ereignisses</translation>
    </message>
    <message>
        <source>&amp;Clear events</source>
        <translation>E&amp;reignisse löschen</translation>
    </message>
    <message>
        <source>Events</source>
        <translation>Ereignisse</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CIdentifierModel</name>
    <message>
        <source>ID</source>
        <translation>ID</translation>
    </message>
    <message>
        <source>Interface</source>
        <translation>Schnittstelle</translation>
    </message>
    <message>
        <source>Dir</source>
        <translation>Ri.</translation>
    </message>
    <message>
        <source>Count</source>
        <translation>Anzahl</translation>
    </message>
    <message>
        <source>Period [ms]</source>
        <translation>Periode [ms]</translation>
    </message>
    <message>
        <source>Data</source>
        <translation>Daten</translation>
    </message>
    <message>
        <source>ASCII</source>
        <translation>ASCII</translation>
    </message>
    <message>
        <source>Rate [1/s]</source>
        <translation>Rate [1/s]</translation>
    </message>
    <message>
        <source>Last seen</source>
        <translation>Zuletzt</translation>
    </message>
    <message>
        <source>Min. period</source>
        <translation>Min. Periode</translation>
    </message>
    <message>
        <source>Max. period</source>
        <translation>Max. Periode</translation>
    </message>
    <message>
        <source>Administration</source>
        <translation>Administration</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CInterfaceList</name>
    <message>
        <source>The plugin %1 was not found.</source>
        <translation>Das Plugin %1 wurde nicht gefunden.</translation>
    </message>
    <message>
        <source>An interface needs a name.</source>
        <translation>Die Schnittstelle braucht einen Namen.</translation>
    </message>
    <message>
        <source>An interface &apos;%1&apos; exists already. Choose another name.</source>
        <translation>Eine Schnittstelle „%1“ gibt es bereits. Wählen Sie einen anderen Namen.</translation>
    </message>
    <message>
        <source>Too many interfaces found; %1 were not added. Check which devices answer.</source>
        <translation>Zu viele Schnittstellen gefunden; %1 wurden nicht aufgenommen. Prüfen Sie, welche Geräte antworten.</translation>
    </message>
    <message>
        <source>%1 %</source>
        <translation>%1 %</translation>
    </message>
    <message>
        <source>%1 kbit/s</source>
        <translation>%1 kbit/s</translation>
    </message>
    <message>
        <source>yes</source>
        <translation>ja</translation>
    </message>
    <message>
        <source>no</source>
        <translation>nein</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>State</source>
        <translation>Zustand</translation>
    </message>
    <message>
        <source>Bus load</source>
        <translation>Buslast</translation>
    </message>
    <message>
        <source>Address</source>
        <translation>Adresse</translation>
    </message>
    <message>
        <source>Baud rate</source>
        <translation>Baudrate</translation>
    </message>
    <message>
        <source>Type</source>
        <translation>Typ</translation>
    </message>
    <message>
        <source>Firmware</source>
        <translation>Firmware</translation>
    </message>
    <message>
        <source>Stored</source>
        <translation>Gespeichert</translation>
    </message>
    <message>
        <source>unchanged</source>
        <translation>unverändert</translation>
    </message>
    <message>
        <source>Nothing is sent: open an interface first.</source>
        <translation>Es wird nichts gesendet: Öffnen Sie zuerst eine Schnittstelle.</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CInterfacePanel</name>
    <message>
        <source>&amp;Open</source>
        <translation>Ö&amp;ffnen</translation>
    </message>
    <message>
        <source>&amp;Close</source>
        <translation>Sch&amp;ließen</translation>
    </message>
    <message>
        <source>&amp;Add ...</source>
        <translation>&amp;Hinzufügen …</translation>
    </message>
    <message>
        <source>Con&amp;figure ...</source>
        <translation>&amp;Konfigurieren …</translation>
    </message>
    <message>
        <source>&amp;Store</source>
        <translation>&amp;Speichern</translation>
    </message>
    <message>
        <source>Re&amp;move</source>
        <translation>Entf&amp;ernen</translation>
    </message>
    <message>
        <source>Scan &amp;network</source>
        <translation>&amp;Netz durchsuchen</translation>
    </message>
    <message>
        <source>Stores the interface, so that the list has it at the next start</source>
        <translation>Speichert die Schnittstelle, damit sie beim nächsten Start in der Liste steht</translation>
    </message>
    <message>
        <source>The baud rate of %1 was not changed: close the interface first.</source>
        <translation>Die Baudrate von %1 wurde nicht geändert: Schließen Sie zuerst die Schnittstelle.</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Entfernen</translation>
    </message>
    <message>
        <source>Bit rate of the CAN bus. A rate chosen here is set on the bus when the interface is opened.</source>
        <translation>Bitrate des CAN-Busses. Eine hier gewählte Rate wird beim Öffnen der Schnittstelle auf dem Bus eingestellt.</translation>
    </message>
    <message>
        <source>Remove these interfaces from the list and from the store?</source>
        <translation>Diese Schnittstellen aus der Liste und aus dem Speicher entfernen?</translation>
    </message>
    <message>
        <source>Try a simu&amp;lated gateway</source>
        <translation>Simu&amp;liertes Gateway ausprobieren</translation>
    </message>
    <message>
        <source>No interfaces yet: &lt;a href=&apos;scan&apos;&gt;scan the network&lt;/a&gt;, &lt;a href=&apos;add&apos;&gt;add&lt;/a&gt; one by its address, or &lt;a href=&apos;simulate&apos;&gt;try&lt;/a&gt; a simulated gateway.</source>
        <translation>Noch keine Schnittstellen: &lt;a href=&apos;scan&apos;&gt;das Netz absuchen&lt;/a&gt;, &lt;a href=&apos;add&apos;&gt;eine hinzufügen&lt;/a&gt; mit ihrer Adresse oder ein simuliertes Gateway &lt;a href=&apos;simulate&apos;&gt;ausprobieren&lt;/a&gt;.</translation>
    </message>
    <message>
        <source>Baud rate</source>
        <translation>Baudrate</translation>
    </message>
    <message>
        <source>%1 has not changed the baud rate of the bus so far. The dialog now shows %2 kbit/s. Set this rate? It disturbs a bus that runs at another rate.</source>
        <translation>%1 hat die Baudrate des Busses bisher nicht geändert. Der Dialog zeigt jetzt %2 kbit/s. Soll diese Rate gesetzt werden? Sie stört einen Bus, der mit einer anderen Rate läuft.</translation>
    </message>
    <message>
        <source>&amp;Leave it unchanged</source>
        <translation>&amp;Nicht ändern</translation>
    </message>
    <message>
        <source>&amp;Set %1 kbit/s</source>
        <translation>%1 kbit/s &amp;setzen</translation>
    </message>
    <message>
        <source>&amp;Baud rate</source>
        <translation>&amp;Baudrate</translation>
    </message>
    <message>
        <source>Send on &amp;this interface</source>
        <translation>Auf &amp;dieser Schnittstelle senden</translation>
    </message>
    <message>
        <source>Interfaces</source>
        <translation>Schnittstellen</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CLogActions</name>
    <message>
        <source>candump logs (*.log);;All files (*)</source>
        <translation>candump-Logs (*.log);;Alle Dateien (*)</translation>
    </message>
    <message>
        <source>&amp;Load log ...</source>
        <translation>Log &amp;laden …</translation>
    </message>
    <message>
        <source>&amp;Save log ...</source>
        <translation>L&amp;og speichern …</translation>
    </message>
    <message>
        <source>&amp;Record to files ...</source>
        <translation>In Dateien auf&amp;nehmen ...</translation>
    </message>
    <message>
        <source>Re&amp;play what is shown ...</source>
        <translation>Gezeigtes ab&amp;spielen ...</translation>
    </message>
    <message>
        <source>%1 messages loaded; live messages wait until the pause ends.</source>
        <translation>%1 Nachrichten geladen; neue Nachrichten warten bis zum Ende der Pause.</translation>
    </message>
    <message>
        <source>%1 messages saved.</source>
        <translation>%1 Nachrichten gespeichert.</translation>
    </message>
    <message>
        <source>Replay ended, messages sent: %1</source>
        <translation>Abspielen beendet, gesendete Nachrichten: %1</translation>
    </message>
    <message>
        <source>Trace</source>
        <translation>Aufzeichnung</translation>
    </message>
    <message>
        <source>Load log</source>
        <translation>Log laden</translation>
    </message>
    <message>
        <source>Save log</source>
        <translation>Log speichern</translation>
    </message>
    <message>
        <source>Folder of the recordings</source>
        <translation>Ordner der Aufnahmen</translation>
    </message>
    <message>
        <source>Replay</source>
        <translation>Abspielen</translation>
    </message>
    <message>
        <source>Interface for the replay:</source>
        <translation>Schnittstelle für das Abspielen:</translation>
    </message>
    <message>
        <source>Write the &amp;direction into logs (R, T)</source>
        <translation>R&amp;ichtung in Logs schreiben (R, T)</translation>
    </message>
    <message>
        <source>%1 of %2 messages saved: only those that are shown.</source>
        <translation>%1 von %2 Nachrichten gespeichert: nur die angezeigten.</translation>
    </message>
    <message>
        <source>Some messages are not saved. Discard them?</source>
        <translation>Einige Nachrichten sind nicht gespeichert. Verwerfen?</translation>
    </message>
    <message>
        <source>&amp;Compare two logs ...</source>
        <translation>Zwei Logs &amp;vergleichen ...</translation>
    </message>
    <message>
        <source>Record to a new file each &amp;hour</source>
        <translation>Je &amp;Stunde in eine neue Datei aufnehmen</translation>
    </message>
    <message>
        <source>candump logs (*.log);;Tables for other programs (*.csv)</source>
        <translation>candump-Logs (*.log);;Tabellen für andere Programme (*.csv)</translation>
    </message>
    <message>
        <source>Choose two logs to compare, or the earlier one first</source>
        <translation>Zwei Logs zum Vergleichen wählen, oder zuerst das frühere</translation>
    </message>
    <message>
        <source>Choose the later log</source>
        <translation>Das spätere Log wählen</translation>
    </message>
    <message>
        <source>Loop</source>
        <translation>Wiederholen</translation>
    </message>
    <message>
        <source>Speed of the replay</source>
        <translation>Tempo des Abspielens</translation>
    </message>
    <message>
        <source> x</source>
        <translation>-fach</translation>
    </message>
    <message>
        <source>Stop</source>
        <translation>Anhalten</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CLogLoader</name>
    <message>
        <source>%1: lines skipped (29-bit, remote, error or CAN FD frames): %2</source>
        <translation>%1: übersprungene Zeilen (29-Bit-, Remote-, Error- oder CAN-FD-Frames): %2</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CMainWindow</name>
    <message>
        <source>CAN interfaces</source>
        <translation>CAN-Schnittstellen</translation>
    </message>
    <message>
        <source>Interfaces</source>
        <translation>Schnittstellen</translation>
    </message>
    <message>
        <source>Bus load</source>
        <translation>Buslast</translation>
    </message>
    <message>
        <source>Send</source>
        <translation>Senden</translation>
    </message>
    <message>
        <source>Events</source>
        <translation>Ereignisse</translation>
    </message>
    <message>
        <source>&amp;File</source>
        <translation>&amp;Datei</translation>
    </message>
    <message>
        <source>&amp;Quit</source>
        <translation>&amp;Beenden</translation>
    </message>
    <message>
        <source>&amp;Interface</source>
        <translation>&amp;Schnittstelle</translation>
    </message>
    <message>
        <source>&amp;Messages</source>
        <translation>&amp;Nachrichten</translation>
    </message>
    <message>
        <source>&amp;View</source>
        <translation>&amp;Ansicht</translation>
    </message>
    <message>
        <source>Events (%1 new)</source>
        <translation>Ereignisse (%1 neu)</translation>
    </message>
    <message>
        <source>%L1 messages/s, %L2 in total</source>
        <translation>%L1 Nachrichten/s, insgesamt %L2</translation>
    </message>
    <message>
        <source>Messages</source>
        <translation>Nachrichten</translation>
    </message>
    <message>
        <source>&apos;%1&apos; is neither a stored interface nor an address like 192.168.1.70:30000:TCP</source>
        <translation>„%1“ ist weder eine gespeicherte Schnittstelle noch eine Adresse wie 192.168.1.70:30000:TCP</translation>
    </message>
    <message>
        <source>1 new error</source>
        <translation>1 neuer Fehler</translation>
    </message>
    <message>
        <source>%1 new errors</source>
        <translation>%1 neue Fehler</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>&amp;Hilfe</translation>
    </message>
    <message>
        <source>&amp;About</source>
        <translation>Ü&amp;ber cimview</translation>
    </message>
    <message>
        <source>cimview %1: CAN interfaces of T93 gateways in a window.
User guide: docs/cimview.md in the source.</source>
        <translation>cimview %1: CAN-Schnittstellen von T93-Gateways in einem Fenster.
Anleitung: docs/cimview.md in den Quellen.</translation>
    </message>
    <message>
        <source>D&amp;ark</source>
        <translation>&amp;Dunkel</translation>
    </message>
    <message>
        <source>, recording to %1</source>
        <translation>, Aufnahme in %1</translation>
    </message>
    <message>
        <source>Messages a&amp;lone</source>
        <translation>Nur &amp;Nachrichten</translation>
    </message>
    <message>
        <source>&amp;Shown panels</source>
        <translation>&amp;Sichtbare Felder</translation>
    </message>
    <message>
        <source>%1 - CAN interfaces</source>
        <translation>%1 - CAN-Schnittstellen</translation>
    </message>
    <message>
        <source>Hide</source>
        <translation>Ausblenden</translation>
    </message>
    <message>
        <source>&amp;Statistics ...</source>
        <translation>S&amp;tatistik ...</translation>
    </message>
    <message>
        <source>&amp;Folded panels</source>
        <translation>&amp;Eingeklappte Felder</translation>
    </message>
    <message>
        <source>Statistics</source>
        <translation>Statistik</translation>
    </message>
    <message>
        <source>Since the start of the program:</source>
        <translation>Seit dem Start des Programms:</translation>
    </message>
    <message>
        <source>Copy</source>
        <translation>Kopieren</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CManagedInterface</name>
    <message>
        <source>The gateway is back.</source>
        <translation>Das Gateway ist wieder da.</translation>
    </message>
    <message>
        <source>Opened.</source>
        <translation>Geöffnet.</translation>
    </message>
    <message>
        <source>Closed.</source>
        <translation>Geschlossen.</translation>
    </message>
    <message>
        <source>Nothing is sent: open %1 first.</source>
        <translation>Es wird nichts gesendet: Öffnen Sie zuerst %1.</translation>
    </message>
    <message>
        <source>Nothing is sent: no gateway has answered at the address of %1. Check the address and the gateway.</source>
        <translation>Es wird nichts gesendet: Unter der Adresse von %1 hat noch kein Gateway geantwortet. Prüfen Sie Adresse und Gateway.</translation>
    </message>
    <message>
        <source>The gateway does not answer any more.</source>
        <translation>Das Gateway antwortet nicht mehr.</translation>
    </message>
    <message>
        <source> Sent cyclically: %1</source>
        <translation> Zyklisch gesendet: %1</translation>
    </message>
    <message>
        <source>not opened, code %1</source>
        <translation>nicht geöffnet, Code %1</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CMessagePanel</name>
    <message>
        <source>&amp;Pause</source>
        <translation>&amp;Pause</translation>
    </message>
    <message>
        <source>C&amp;lear</source>
        <translation>Lö&amp;schen</translation>
    </message>
    <message>
        <source>T&amp;race</source>
        <translation>A&amp;ufzeichnung</translation>
    </message>
    <message>
        <source>all; example: 123  120:7F0</source>
        <translation>alle; Beispiel: 123  120:7F0</translation>
    </message>
    <message>
        <source>any text or data</source>
        <translation>beliebiger Text oder Daten</translation>
    </message>
    <message>
        <source>Te&amp;xt:</source>
        <translation>Te&amp;xt:</translation>
    </message>
    <message>
        <source>%L1 waiting</source>
        <translation>%L1 warten</translation>
    </message>
    <message>
        <source>B&amp;y identifier</source>
        <translation>Na&amp;ch ID</translation>
    </message>
    <message>
        <source>Ide&amp;ntifier:</source>
        <translation>Id&amp;entifier:</translation>
    </message>
    <message>
        <source>F&amp;ollow</source>
        <translation>F&amp;olgen</translation>
    </message>
    <message>
        <source>Keeps the newest message in view. Scrolling up turns it off; scrolling to the end turns it on.</source>
        <translation>Hält die neueste Nachricht im Blick. Hochscrollen schaltet es aus, Scrollen zum Ende schaltet es ein.</translation>
    </message>
    <message>
        <source>Show only this identifier</source>
        <translation>Nur diesen Identifier zeigen</translation>
    </message>
    <message>
        <source>Add to the send list</source>
        <translation>Zur Sendeliste hinzufügen</translation>
    </message>
    <message>
        <source>Time of &amp;day</source>
        <translation>&amp;Uhrzeit</translation>
    </message>
    <message>
        <source>Time since the &amp;first message</source>
        <translation>Zeit seit der &amp;ersten Nachricht</translation>
    </message>
    <message>
        <source>Time since the message &amp;before</source>
        <translation>Zeit seit der &amp;vorigen Nachricht</translation>
    </message>
    <message>
        <source>Identifiers to show, hexadecimal: ID, LOW-HIGH, ID:MASK for all that equal ID in the
bits of MASK, ID~MASK for all but these. Separate several filters by blanks.</source>
        <translation>Zu zeigende Identifier, hexadezimal: ID, VON-BIS, ID:MASKE für alle, die ID in den
Bits von MASKE gleichen, ID~MASKE für alle außer diesen. Mehrere Filter durch Leerzeichen trennen.</translation>
    </message>
    <message>
        <source>wrong filter</source>
        <translation>falscher Filter</translation>
    </message>
    <message>
        <source>&amp;Find</source>
        <translation>&amp;Suchen</translation>
    </message>
    <message>
        <source>Find ne&amp;xt</source>
        <translation>&amp;Weitersuchen</translation>
    </message>
    <message>
        <source>Find pre&amp;vious</source>
        <translation>&amp;Rückwärts suchen</translation>
    </message>
    <message>
        <source>Load &amp;names of identifiers ...</source>
        <translation>Na&amp;men der Identifier laden ...</translation>
    </message>
    <message>
        <source>Shows only messages with this text in any column.</source>
        <translation>Zeigt nur Nachrichten mit diesem Text in irgendeiner Spalte.</translation>
    </message>
    <message>
        <source>Finds messages with this text in any column. F3: next, Shift+F3: previous.</source>
        <translation>Findet Nachrichten mit diesem Text in irgendeiner Spalte. F3: nächste, Umschalt+F3: vorige.</translation>
    </message>
    <message>
        <source>F&amp;ind:</source>
        <translation>S&amp;uchen:</translation>
    </message>
    <message>
        <source>Trace</source>
        <translation>Aufzeichnung</translation>
    </message>
    <message>
        <source>Messages by identifier</source>
        <translation>Nachrichten nach Identifier</translation>
    </message>
    <message>
        <source>Hide this identifier</source>
        <translation>Diesen Identifier ausblenden</translation>
    </message>
    <message>
        <source>%L1 messages</source>
        <translation>%L1 Nachrichten</translation>
    </message>
    <message>
        <source>%L1, %L2 hidden by the filter</source>
        <translation>%L1, %L2 durch den Filter ausgeblendet</translation>
    </message>
    <message>
        <source>Pause</source>
        <translation>Pause</translation>
    </message>
    <message>
        <source>Show live messages in place of %1?</source>
        <translation>Laufende Nachrichten anstelle von %1 zeigen?</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CSendList</name>
    <message>
        <source>interval %1: must be 1 to %2 ms</source>
        <translation>Intervall %1: muss zwischen 1 und %2 ms liegen</translation>
    </message>
    <message>
        <source>Cyclic</source>
        <translation>Zyklisch</translation>
    </message>
    <message>
        <source>ID</source>
        <translation>ID</translation>
    </message>
    <message>
        <source>Data</source>
        <translation>Daten</translation>
    </message>
    <message>
        <source>mute</source>
        <translation>Stumm</translation>
    </message>
    <message>
        <source>level</source>
        <translation>Pegel</translation>
    </message>
    <message>
        <source>The identifier is missing: it must be hexadecimal, 0 to 7FF.</source>
        <translation>Der Identifier fehlt: Er muss hexadezimal sein, 0 bis 7FF.</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>Every [ms]</source>
        <translation>Alle [ms]</translation>
    </message>
    <message>
        <source>Sent</source>
        <translation>Gesendet</translation>
    </message>
    <message>
        <source>On</source>
        <translation>Auf</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CSendPanel</name>
    <message>
        <source>Send c&amp;hosen</source>
        <translation>Ge&amp;wählte senden</translation>
    </message>
    <message>
        <source>S&amp;top all</source>
        <translation>Alle an&amp;halten</translation>
    </message>
    <message>
        <source>Identifier, hexadecimal, 0 to 7FF</source>
        <translation>Identifier, hexadezimal, 0 bis 7FF</translation>
    </message>
    <message>
        <source>Up to eight bytes, hexadecimal</source>
        <translation>Bis zu acht Bytes, hexadezimal</translation>
    </message>
    <message>
        <source>I&amp;D:</source>
        <translation>&amp;ID:</translation>
    </message>
    <message>
        <source>Dat&amp;a:</source>
        <translation>Da&amp;ten:</translation>
    </message>
    <message>
        <source>&amp;Send</source>
        <translation>Senden</translation>
    </message>
    <message>
        <source>Add to &amp;list</source>
        <translation>&amp;Zur Liste</translation>
    </message>
    <message>
        <source>Remove</source>
        <translation>Entfernen</translation>
    </message>
    <message>
        <source>&amp;On:</source>
        <translation>Au&amp;f:</translation>
    </message>
    <message>
        <source>%1 (not open)</source>
        <translation>%1 (nicht offen)</translation>
    </message>
    <message>
        <source>Send on the interface above</source>
        <translation>Auf der Schnittstelle darüber senden</translation>
    </message>
    <message>
        <source>Load list ...</source>
        <translation>Liste laden ...</translation>
    </message>
    <message>
        <source>Save list ...</source>
        <translation>Liste speichern ...</translation>
    </message>
    <message>
        <source>Load list</source>
        <translation>Liste laden</translation>
    </message>
    <message>
        <source>%1 contains no messages to send</source>
        <translation>%1 enthält keine Nachrichten zum Senden</translation>
    </message>
    <message>
        <source>Save list</source>
        <translation>Liste speichern</translation>
    </message>
    <message>
        <source>%1 cannot be written</source>
        <translation>%1 kann nicht geschrieben werden</translation>
    </message>
    <message>
        <source>Messages to send</source>
        <translation>Zu sendende Nachrichten</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CTraceModel</name>
    <message>
        <source>Time</source>
        <translation>Zeit</translation>
    </message>
    <message>
        <source>Interface</source>
        <translation>Schnittstelle</translation>
    </message>
    <message>
        <source>Dir</source>
        <translation>Ri.</translation>
    </message>
    <message>
        <source>ID</source>
        <translation>ID</translation>
    </message>
    <message>
        <source>Data</source>
        <translation>Daten</translation>
    </message>
    <message>
        <source>ASCII</source>
        <translation>ASCII</translation>
    </message>
    <message>
        <source>Administration</source>
        <translation>Verwaltung</translation>
    </message>
</context>
<context>
    <name>vexmor::Apps::Cimview::CWorkbench</name>
    <message>
        <source>The scan could not be started. Another one may be running.</source>
        <translation>Die Suche konnte nicht gestartet werden. Vielleicht läuft schon eine.</translation>
    </message>
    <message>
        <source>The window was busy for too long: %1 messages were lost.</source>
        <translation>Das Fenster war zu lange beschäftigt: %1 Nachrichten gingen verloren.</translation>
    </message>
    <message>
        <source>Simulation %1</source>
        <translation>Simulation %1</translation>
    </message>
    <message>
        <source>Recording to %1</source>
        <translation>Aufnahme in %1</translation>
    </message>
    <message>
        <source>Recording ended, messages: %1</source>
        <translation>Aufnahme beendet, Nachrichten: %1</translation>
    </message>
    <message>
        <source>Scanning the network, which takes over 4 s ...</source>
        <translation>Das Netz wird durchsucht, was über 4 s dauert ...</translation>
    </message>
    <message>
        <source>Scan finished: %1 found, %2 new</source>
        <translation>Suche beendet: %1 gefunden, %2 neu</translation>
    </message>
    <message>
        <source>Scan finished: no gateway answered. Check in turn:
- Is the gateway switched on, and on the same switch? A broadcast does not pass a router, and rarely a WLAN.
- Does this computer have an address in the gateway&apos;s subnet?
- Does a firewall drop UDP datagrams from port 33333?
- Behind a router: add the interface by its address.</source>
        <translation>Suche beendet: kein Gateway hat geantwortet. Der Reihe nach zu prüfen:
- Ist das Gateway eingeschaltet und am selben Switch? Ein Rundruf geht durch keinen Router und selten durch ein WLAN.
- Hat dieser Rechner eine Adresse im Teilnetz des Gateways?
- Verwirft eine Firewall UDP-Datagramme von Port 33333?
- Hinter einem Router: die Schnittstelle mit ihrer Adresse hinzufügen.</translation>
    </message>
    <message>
        <source>%1. Events shows what to check.</source>
        <translation>%1. Unter Ereignisse steht, was zu prüfen ist.</translation>
    </message>
</context>
</TS>
