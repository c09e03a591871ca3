<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="en">
<context>
    <name>QObject</name>
    <message>
        <source>OK - no error.</source>
        <translation>OK – kein Fehler.</translation>
    </message>
    <message>
        <source>Interface already opened.</source>
        <translation>Die Schnittstelle ist bereits geöffnet.</translation>
    </message>
    <message>
        <source>Interface not opened.</source>
        <translation>Die Schnittstelle ist nicht geöffnet.</translation>
    </message>
    <message>
        <source>Interface not connected.</source>
        <translation>Die Schnittstelle ist nicht verbunden.</translation>
    </message>
    <message>
        <source>Receive queue empty.</source>
        <translation>Die Empfangswarteschlange ist leer.</translation>
    </message>
    <message>
        <source>CAN Baudrate not supported.</source>
        <translation>Die CAN-Baudrate wird nicht unterstützt.</translation>
    </message>
    <message>
        <source>No configuration change allowed on opened interface. First close it.</source>
        <translation>Die Konfiguration einer geöffneten Schnittstelle kann nicht geändert werden. Schließen Sie die Schnittstelle zuerst.</translation>
    </message>
    <message>
        <source>Change of pluign name not allowed.</source>
        <translation>Der Name des Plugins darf nicht geändert werden.</translation>
    </message>
    <message>
        <source>Conversion string to enumeration failed.</source>
        <translation>Der Text konnte nicht in einen Aufzählungswert umgewandelt werden.</translation>
    </message>
    <message>
        <source>Conversion string to host address failed.</source>
        <translation>Der Text konnte nicht in eine Hostadresse umgewandelt werden.</translation>
    </message>
    <message>
        <source>Conversion enumeration to string failed.</source>
        <translation>Der Aufzählungswert konnte nicht in einen Text umgewandelt werden.</translation>
    </message>
</context>
<context>
    <name>vexmor::Cim::CConfigDialogT93</name>
    <message>
        <source>unknown</source>
        <translation>unbekannt</translation>
    </message>
    <message>
        <source>T93 configuration dialog</source>
        <translation>T93-Konfiguration</translation>
    </message>
    <message>
        <source>Host Name</source>
        <translation>Hostname</translation>
    </message>
    <message>
        <source>Socket Mode</source>
        <translation>Socket-Modus</translation>
    </message>
    <message>
        <source>Protocol Type</source>
        <translation>Protokoll</translation>
    </message>
    <message>
        <source>IP Address</source>
        <translation>IP-Adresse</translation>
    </message>
    <message>
        <source>Port Number</source>
        <translation>Portnummer</translation>
    </message>
    <message>
        <source>Auto IP update</source>
        <translation>IP-Adresse automatisch aktualisieren</translation>
    </message>
    <message>
        <source>Local IP Address</source>
        <translation>Lokale IP-Adresse</translation>
    </message>
    <message>
        <source>UDP receive any IP Address</source>
        <translation>UDP-Empfang von jeder IP-Adresse</translation>
    </message>
    <message>
        <source>CAN Baudrate [kbit/s]</source>
        <translation>CAN-Baudrate [kbit/s]</translation>
    </message>
    <message>
        <source>Busload poll time [ms]</source>
        <translation>Abfrageintervall der Buslast [ms]</translation>
    </message>
    <message>
        <source>Busload measure interval [ms]</source>
        <translation>Messintervall der Buslast [ms]</translation>
    </message>
    <message>
        <source>IP address of the PC network interface where the T93 is attached.
Used for UDP mode.</source>
        <translation>IP-Adresse der Netzwerkschnittstelle des PCs, an der das T93 angeschlossen ist.
Wird im UDP-Betrieb verwendet.</translation>
    </message>
    <message>
        <source>Used only for UDP mode. If this option is enabled we can receive UDP messages from any T93
because any IP address in the UDP packet is accepted.</source>
        <translation>Wird nur im UDP-Betrieb verwendet. Ist diese Option eingeschaltet, werden UDP-Nachrichten von jedem T93 empfangen,
da jede IP-Adresse im UDP-Paket angenommen wird.</translation>
    </message>
    <message>
        <source>If the T93 is used in DHCP mode then it will automatically get an IP address from the DHCP server. If &apos;Auto IP update&apos; is set then the new IP address after a restart will be automatically taken over.</source>
        <translation>Im DHCP-Betrieb erhält das T93 seine IP-Adresse automatisch vom DHCP-Server. Ist „IP-Adresse automatisch aktualisieren“ eingeschaltet, wird die neue IP-Adresse nach einem Neustart automatisch übernommen.</translation>
    </message>
    <message>
        <source>%1: %2 not in valid range (min: %3, max: %4)</source>
        <translation>%1: %2 liegt nicht im gültigen Bereich (min. %3, max. %4)</translation>
    </message>
    <message>
        <source> not in valid range (min: %4, max: %5)</source>
        <translation> liegt nicht im gültigen Bereich (min. %4, max. %5)</translation>
    </message>
</context>
<context>
    <name>vexmor::Cim::CInterfaceT93</name>
    <message>
        <source>T93 Ethernet Interface</source>
        <translation>T93-Ethernet-Schnittstelle</translation>
    </message>
    <message>
        <source>Create TCP socket failed.</source>
        <translation>Der TCP-Socket konnte nicht angelegt werden.</translation>
    </message>
    <message>
        <source>Create UDP socket failed.</source>
        <translation>Der UDP-Socket konnte nicht angelegt werden.</translation>
    </message>
    <message>
        <source>No IP socket for this operation.</source>
        <translation>Für diesen Vorgang ist kein IP-Socket vorhanden.</translation>
    </message>
    <message>
        <source>TCP connect failed. T93 not connected or used by another program.</source>
        <translation>Die TCP-Verbindung konnte nicht aufgebaut werden. Das T93 ist nicht angeschlossen oder wird von einem anderen Programm verwendet.</translation>
    </message>
    <message>
        <source>UDP bind failed. Interface maybe used by another program.</source>
        <translation>Der UDP-Socket konnte nicht an die lokale Adresse gebunden werden. Möglicherweise wird die Schnittstelle von einem anderen Programm verwendet.</translation>
    </message>
    <message>
        <source>Unknown protocol (neither TCP nor UDP).</source>
        <translation>Unbekanntes Protokoll (weder TCP noch UDP).</translation>
    </message>
    <message>
        <source>Allocation of CAN message queue failed.</source>
        <translation>Für die Warteschlange der CAN-Nachrichten konnte kein Speicher belegt werden.</translation>
    </message>
    <message>
        <source>Transmit RM Framer failed.</source>
        <translation>Der RM-Rahmen zum Senden konnte nicht gebildet werden.</translation>
    </message>
    <message>
        <source>Transmit socket failed.</source>
        <translation>Das Senden über den Socket ist fehlgeschlagen.</translation>
    </message>
    <message>
        <source>Attempt to send when having no TCP connection.</source>
        <translation>Es kann nicht gesendet werden, weil keine TCP-Verbindung besteht.</translation>
    </message>
    <message>
        <source>

TCP connection lost.

Possible reasons:
- network cable disconnected or broken
- no powered network interface or amplifier connected

Please check connection and devices, then press OK.</source>
        <translation>

Die TCP-Verbindung wurde unterbrochen.

Mögliche Ursachen:
- Netzwerkkabel nicht angeschlossen oder defekt
- keine eingeschaltete Netzwerkschnittstelle und kein eingeschalteter Verstärker angeschlossen

Bitte prüfen Sie die Verbindung und die Geräte und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

Deframer wrong checksum.

Possible reasons:
- network cable disconnected or broken
- no powered network interface or amplifier connected

Please check connection and devices, then press OK.</source>
        <translation>

Ein empfangener Rahmen hat eine falsche Prüfsumme.

Mögliche Ursachen:
- Netzwerkkabel nicht angeschlossen oder defekt
- keine eingeschaltete Netzwerkschnittstelle und kein eingeschalteter Verstärker angeschlossen

Bitte prüfen Sie die Verbindung und die Geräte und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

Rx queue full.

Possible reasons:
- CAN bus load too heavy

Please reduce CAN bus load by closing views. Views producing heavy load are e.g. Service view and Devices view or views with a large number of controls.</source>
        <translation>

Die Empfangswarteschlange ist voll.

Mögliche Ursachen:
- zu hohe Last auf dem CAN-Bus

Bitte verringern Sie die Last auf dem CAN-Bus, indem Sie Ansichten schließen. Eine hohe Last erzeugen z. B. die Service-Ansicht, die Geräte-Ansicht und Ansichten mit vielen Bedienelementen.</translation>
    </message>
    <message>
        <source>

Read from socket failed.

Possible reasons:
- network cable disconnected or broken
- no powered network interface or amplifier connected

Please check connection and devices, then press OK.</source>
        <translation>

Das Lesen vom Socket ist fehlgeschlagen.

Mögliche Ursachen:
- Netzwerkkabel nicht angeschlossen oder defekt
- keine eingeschaltete Netzwerkschnittstelle und kein eingeschalteter Verstärker angeschlossen

Bitte prüfen Sie die Verbindung und die Geräte und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

TCP connection not established.

Possible reasons:
- network cable disconnected or broken
- no powered network interface or amplifier connected

Please check connection and devices, then press OK.</source>
        <translation>

Es besteht keine TCP-Verbindung.

Mögliche Ursachen:
- Netzwerkkabel nicht angeschlossen oder defekt
- keine eingeschaltete Netzwerkschnittstelle und kein eingeschalteter Verstärker angeschlossen

Bitte prüfen Sie die Verbindung und die Geräte und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

T93 CAN buffer overflow.

Possible reasons:
- CAN or network cable disconnected or broken
- no powered device connected
- another software on the CAN bus uses the same master setting

Please check connection and amplifiers, then press OK.</source>
        <translation>

Der CAN-Puffer des T93 ist übergelaufen.

Mögliche Ursachen:
- CAN- oder Netzwerkkabel nicht angeschlossen oder defekt
- kein eingeschaltetes Gerät angeschlossen
- eine andere Software am CAN-Bus verwendet dieselbe Master-Einstellung

Bitte prüfen Sie die Verbindung und die Verstärker und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

T93 CAN transmit timeout.

Possible reasons:
- CAN or network cable disconnected or broken
- no powered device connected
- another software on the CAN bus uses the same master setting

Please check connection and amplifiers, then press OK.</source>
        <translation>

Das T93 konnte innerhalb der vorgesehenen Zeit nicht auf den CAN-Bus senden.

Mögliche Ursachen:
- CAN- oder Netzwerkkabel nicht angeschlossen oder defekt
- kein eingeschaltetes Gerät angeschlossen
- eine andere Software am CAN-Bus verwendet dieselbe Master-Einstellung

Bitte prüfen Sie die Verbindung und die Verstärker und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

T93 CAN error counter overflow.

Possible reasons:
- CAN or network cable disconnected or broken
- no powered device connected
- another software on the CAN bus uses the same master setting

Please check connection and amplifiers, then press OK.</source>
        <translation>

Der CAN-Fehlerzähler des T93 ist übergelaufen.

Mögliche Ursachen:
- CAN- oder Netzwerkkabel nicht angeschlossen oder defekt
- kein eingeschaltetes Gerät angeschlossen
- eine andere Software am CAN-Bus verwendet dieselbe Master-Einstellung

Bitte prüfen Sie die Verbindung und die Verstärker und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

T93 CAN bus off error.

Possible reasons:
- network cable disconnected or broken
- no powered network interface or amplifier connected

Please check connection and devices, then press OK.</source>
        <translation>

Das T93 hat sich nach Fehlern vom CAN-Bus getrennt (Bus-Off).

Mögliche Ursachen:
- Netzwerkkabel nicht angeschlossen oder defekt
- keine eingeschaltete Netzwerkschnittstelle und kein eingeschalteter Verstärker angeschlossen

Bitte prüfen Sie die Verbindung und die Geräte und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

T93 TCP syntax error.

Possible reasons:
- network cable disconnected or broken
- no powered network interface or amplifier connected

Please check connection and devices, then press OK.</source>
        <translation>

Das T93 meldet einen Syntaxfehler in der TCP-Übertragung.

Mögliche Ursachen:
- Netzwerkkabel nicht angeschlossen oder defekt
- keine eingeschaltete Netzwerkschnittstelle und kein eingeschalteter Verstärker angeschlossen

Bitte prüfen Sie die Verbindung und die Geräte und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

T93 TCP format error.

Possible reasons:
- network cable disconnected or broken
- no powered network interface or amplifier connected

Please check connection and devices, then press OK.</source>
        <translation>

Das T93 meldet einen Formatfehler in der TCP-Übertragung.

Mögliche Ursachen:
- Netzwerkkabel nicht angeschlossen oder defekt
- keine eingeschaltete Netzwerkschnittstelle und kein eingeschalteter Verstärker angeschlossen

Bitte prüfen Sie die Verbindung und die Geräte und drücken Sie dann OK.</translation>
    </message>
    <message>
        <source>

T93 TCP buffer overflow.

Possible reasons:
- network cable disconnected or broken
- no powered network interface or amplifier connected

Please check connection and devices, then press OK.</source>
        <translation>

Der TCP-Puffer des T93 ist übergelaufen.

Mögliche Ursachen:
- Netzwerkkabel nicht angeschlossen oder defekt
- keine eingeschaltete Netzwerkschnittstelle und kein eingeschalteter Verstärker angeschlossen

Bitte prüfen Sie die Verbindung und die Geräte und drücken Sie dann OK.</translation>
    </message>
</context>
<context>
    <name>vexmor::Cim::CT93DeviceDetection</name>
    <message>
        <source>T93 Ethernet Interface</source>
        <translation>T93-Ethernet-Schnittstelle</translation>
    </message>
</context>
</TS>
