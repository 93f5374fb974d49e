<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>quillane::Appcast</name>
    <message>
        <source>The feed is not well-formed XML (line %1: %2).</source>
        <translation>Der Feed ist kein wohlgeformtes XML (Zeile %1: %2).</translation>
    </message>
    <message>
        <source>The feed is empty.</source>
        <translation>Der Feed ist leer.</translation>
    </message>
    <message>
        <source>The feed is not an RSS feed (it starts with &lt;%1&gt;).</source>
        <translation>Der Feed ist kein RSS-Feed (er beginnt mit &lt;%1&gt;).</translation>
    </message>
    <message>
        <source>The feed lists no release with a build number.</source>
        <translation>Der Feed nennt keine Version mit Build-Nummer.</translation>
    </message>
</context>
<context>
    <name>quillane::CommandLine</name>
    <message>
        <source>Quillane shows the trash of every location (your home, each mounted volume, cloud folders) and empties one at a time.

Without a command it runs as a tray application.

Commands:
  list [--json]            Print every trash location with its item count and size.
  empty LOCATION [--yes]   Empty the trash of one location, named as list shows it.</source>
        <translation>Quillane zeigt den Papierkorb jedes Ortes (Ihr persönlicher Ordner, jedes eingehängte Laufwerk, Cloud-Ordner) und leert einen nach dem anderen.

Ohne Befehl läuft es als Anwendung im Systembereich der Leiste.

Befehle:
  list [--json]            Jeden Papierkorb mit Anzahl der Objekte und Größe ausgeben.
  empty ORT [--yes]        Den Papierkorb eines Ortes leeren, benannt wie in list.</translation>
    </message>
    <message>
        <source>With list: print a JSON array.</source>
        <translation>Mit list: ein JSON-Array ausgeben.</translation>
    </message>
    <message>
        <source>With empty: do not ask first.</source>
        <translation>Mit empty: nicht vorher nachfragen.</translation>
    </message>
    <message>
        <source>Also print the diagnostic lines of the tray application, on standard error.</source>
        <translation>Auch die Diagnosezeilen der Anwendung ausgeben, auf der Standardfehlerausgabe.</translation>
    </message>
    <message>
        <source>list or empty</source>
        <translation>list oder empty</translation>
    </message>
    <message>
        <source>quillane: unknown command &quot;%1&quot;; see quillane --help</source>
        <translation>quillane: unbekannter Befehl „%1“; siehe quillane --help</translation>
    </message>
</context>
<context>
    <name>quillane::Debug</name>
    <message>
        <source>Quillane Alert</source>
        <translation>Quillane-Hinweis</translation>
    </message>
    <message>
        <source>Ok</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>quillane::DesktopWorkspace</name>
    <message>
        <source>could not start</source>
        <translation>konnte nicht gestartet werden</translation>
    </message>
</context>
<context>
    <name>quillane::DisplayText</name>
    <message numerus="yes">
        <source>%Ln byte(s)</source>
        <translation>
            <numerusform>%Ln Byte</numerusform>
            <numerusform>%Ln Byte</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>quillane::EllipsisMenu</name>
    <message>
        <source>About Quillane</source>
        <translation>Über Quillane</translation>
    </message>
    <message>
        <source>Check for Updates...</source>
        <translation>Nach Aktualisierungen suchen …</translation>
    </message>
    <message>
        <source>Settings...</source>
        <translation>Einstellungen …</translation>
    </message>
    <message>
        <source>Contact Support...</source>
        <translation>Support kontaktieren …</translation>
    </message>
    <message>
        <source>Uninstall Quillane...</source>
        <translation>Quillane deinstallieren …</translation>
    </message>
    <message>
        <source>Quit Quillane</source>
        <translation>Quillane beenden</translation>
    </message>
    <message>
        <source>Helper not running</source>
        <translation>Hilfsdienst läuft nicht</translation>
    </message>
    <message>
        <source>Helper Running. Build: %1</source>
        <translation>Hilfsdienst läuft. Build: %1</translation>
    </message>
    <message>
        <source>Quillane
Version %1</source>
        <translation>Quillane
Version %1</translation>
    </message>
    <message>
        <source>Uninstalling Quillane</source>
        <translation>Quillane deinstallieren</translation>
    </message>
    <message>
        <source>Are you sure that you want to uninstall Quillane?</source>
        <translation>Möchten Sie Quillane wirklich deinstallieren?</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Menu</source>
        <translation>Menü</translation>
    </message>
</context>
<context>
    <name>quillane::EmptyCommand</name>
    <message>
        <source>it is no location of the list; see quillane list</source>
        <translation>es ist kein Ort der Liste; siehe quillane list</translation>
    </message>
    <message>
        <source>it is on a volume mounted read-only, where nothing can be removed</source>
        <translation>es liegt auf einem schreibgeschützt eingehängten Laufwerk, auf dem nichts entfernt werden kann</translation>
    </message>
    <message numerus="yes">
        <source>Empty the trash of %1 (%n item(s))? The items cannot be restored. [y/N] </source>
        <translation>
            <numerusform>Papierkorb von %1 leeren (%n Objekt)? Das Objekt kann nicht wiederhergestellt werden. [j/N] </numerusform>
            <numerusform>Papierkorb von %1 leeren (%n Objekte)? Die Objekte können nicht wiederhergestellt werden. [j/N] </numerusform>
        </translation>
    </message>
    <message>
        <source>y yes</source>
        <extracomment>What agrees to the question that ends in [y/N]: its letter, then the word.</extracomment>
        <translation>j ja</translation>
    </message>
    <message>
        <source>not sent to the helper daemon</source>
        <translation>nicht an den Hilfsdienst übergeben</translation>
    </message>
    <message>
        <source>the trash of %1 was not emptied: %2</source>
        <translation>der Papierkorb von %1 wurde nicht geleert: %2</translation>
    </message>
    <message>
        <source>emptying the trash of %1 stopped: %2</source>
        <translation>das Leeren des Papierkorbs von %1 wurde abgebrochen: %2</translation>
    </message>
    <message>
        <source>the trash of %1 holds nothing to remove</source>
        <translation>der Papierkorb von %1 enthält nichts zu entfernen</translation>
    </message>
    <message>
        <source>%1 stayed: %2</source>
        <translation>%1 ist geblieben: %2</translation>
    </message>
    <message>
        <source>the helper daemon stopped answering</source>
        <translation>der Hilfsdienst antwortet nicht mehr</translation>
    </message>
    <message numerus="yes">
        <source>%n item(s) need the helper daemon, which is not reachable: %1</source>
        <translation>
            <numerusform>%n Objekt braucht den Hilfsdienst, der nicht erreichbar ist: %1</numerusform>
            <numerusform>%n Objekte brauchen den Hilfsdienst, der nicht erreichbar ist: %1</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>the helper daemon did not remove %n item(s)</source>
        <translation>
            <numerusform>der Hilfsdienst hat %n Objekt nicht entfernt</numerusform>
            <numerusform>der Hilfsdienst hat %n Objekte nicht entfernt</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>&quot;%1&quot; names %n locations; say which by its location or trash folder:</source>
        <translation>
            <numerusform>„%1“ bezeichnet %n Ort; geben Sie ihn durch seinen Ort oder Papierkorb-Ordner an:</numerusform>
            <numerusform>„%1“ bezeichnet %n Orte; geben Sie einen durch seinen Ort oder Papierkorb-Ordner an:</numerusform>
        </translation>
    </message>
    <message>
        <source>no trash at &quot;%1&quot;: %2</source>
        <translation>kein Papierkorb bei „%1“: %2</translation>
    </message>
    <message>
        <source>nothing was removed</source>
        <translation>es wurde nichts entfernt</translation>
    </message>
</context>
<context>
    <name>quillane::FDAView</name>
    <message>
        <source>Welcome to Quillane</source>
        <translation>Willkommen bei Quillane</translation>
    </message>
    <message>
        <source>The Quillane app can be used to empty the trash on each volume individually. Click the Quillane icon in your desktop&apos;s panel, and empty the trash for individual volumes.</source>
        <translation>Mit Quillane können Sie den Papierkorb jedes Laufwerks einzeln leeren. Klicken Sie auf das Quillane-Symbol in der Leiste Ihrer Arbeitsumgebung und leeren Sie den Papierkorb einzelner Laufwerke.</translation>
    </message>
    <message>
        <source>Quillane requires access to your trash</source>
        <translation>Quillane benötigt Zugriff auf Ihren Papierkorb</translation>
    </message>
    <message>
        <source>To have access to empty your trash, Quillane needs to be able to list your trash folder. </source>
        <translation>Um Ihren Papierkorb leeren zu können, muss Quillane den Inhalt Ihres Papierkorb-Ordners auflisten können. </translation>
    </message>
    <message>
        <source> To fix it, run this command in a terminal, then quit and reopen Quillane:</source>
        <translation> Führen Sie zur Behebung diesen Befehl in einem Terminal aus, beenden Sie dann Quillane und öffnen Sie es erneut:</translation>
    </message>
    <message>
        <source>Fix It with the Quillane Helper</source>
        <translation>Mit dem Quillane-Hilfsdienst beheben</translation>
    </message>
    <message>
        <source>Waiting for an administrator&apos;s approval…</source>
        <translation>Warten auf die Zustimmung eines Administrators …</translation>
    </message>
    <message>
        <source>The helper could not fix it: %1</source>
        <translation>Der Hilfsdienst konnte es nicht beheben: %1</translation>
    </message>
    <message>
        <source>Your trash folder is yours again. Quit and reopen Quillane to empty your trash.</source>
        <translation>Ihr Papierkorb-Ordner gehört wieder Ihnen. Beenden Sie Quillane und öffnen Sie es erneut, um Ihren Papierkorb zu leeren.</translation>
    </message>
    <message>
        <source>Close</source>
        <translation>Schließen</translation>
    </message>
    <message>
        <source>It can now: quit and reopen Quillane.</source>
        <translation>Das ist jetzt möglich: Beenden Sie Quillane und öffnen Sie es erneut.</translation>
    </message>
    <message>
        <source>The folder ‘%1’ belongs to %2, not to you, as happens when a file manager was run with sudo.</source>
        <translation>Der Ordner ‚%1‘ gehört %2 und nicht Ihnen, wie es vorkommt, wenn eine Dateiverwaltung mit sudo ausgeführt wurde.</translation>
    </message>
    <message>
        <source>The folder ‘%1’ has the permissions %2, which keep you out of it.</source>
        <translation>Der Ordner ‚%1‘ hat die Zugriffsrechte %2, die Ihnen den Zugriff verwehren.</translation>
    </message>
    <message>
        <source>The folder ‘%1’ cannot be listed (%2). A confinement profile, such as AppArmor&apos;s, may keep Quillane out of it: allow Quillane to read it there, then quit and reopen Quillane.</source>
        <translation>Der Inhalt des Ordners ‚%1‘ kann nicht aufgelistet werden (%2). Ein Sicherheitsprofil, etwa von AppArmor, verwehrt Quillane möglicherweise den Zugriff: Erlauben Sie Quillane dort das Lesen, beenden Sie dann Quillane und öffnen Sie es erneut.</translation>
    </message>
</context>
<context>
    <name>quillane::HelperView</name>
    <message>
        <source>Quillane Needs Authorization</source>
        <translation>Quillane benötigt eine Berechtigung</translation>
    </message>
    <message>
        <source>Sometimes, your trash might contain items that require extra permission to delete. To grant this permission, install the Quillane helper, which comes with the Quillane package. Install the package with this command, then click Check Again:</source>
        <translation>Manchmal enthält Ihr Papierkorb Objekte, für deren Löschen zusätzliche Rechte nötig sind. Um diese Rechte zu gewähren, installieren Sie den Quillane-Hilfsdienst, der im Quillane-Paket enthalten ist. Installieren Sie das Paket mit diesem Befehl und klicken Sie dann auf „Erneut prüfen“:</translation>
    </message>
    <message>
        <source>Check Again</source>
        <translation>Erneut prüfen</translation>
    </message>
</context>
<context>
    <name>quillane::ItemsWindow</name>
    <message>
        <source>Choose where to restore “%1”</source>
        <translation>Ort zum Wiederherstellen von „%1“ wählen</translation>
    </message>
    <message>
        <source>Trash of %1</source>
        <translation>Papierkorb von %1</translation>
    </message>
    <message>
        <source>Search</source>
        <translation>Suchen</translation>
    </message>
    <message>
        <source>Search the trash of %1</source>
        <translation>Im Papierkorb von %1 suchen</translation>
    </message>
    <message>
        <source>Items in the trash of %1</source>
        <translation>Objekte im Papierkorb von %1</translation>
    </message>
    <message>
        <source>Restore</source>
        <translation>Wiederherstellen</translation>
    </message>
    <message>
        <source>Restore the selected items</source>
        <translation>Die ausgewählten Objekte wiederherstellen</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>Delete the selected items</source>
        <translation>Die ausgewählten Objekte löschen</translation>
    </message>
    <message numerus="yes">
        <source>%Ln item(s)</source>
        <translation>
            <numerusform>%Ln Objekt</numerusform>
            <numerusform>%Ln Objekte</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%1 of %Ln item(s)</source>
        <translation>
            <numerusform>%1 von %Ln Objekt</numerusform>
            <numerusform>%1 von %Ln Objekten</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>Are you sure you want to delete %n item(s) from the trash of %1?</source>
        <translation>
            <numerusform>Möchten Sie %n Objekt wirklich aus dem Papierkorb von %1 löschen?</numerusform>
            <numerusform>Möchten Sie %n Objekte wirklich aus dem Papierkorb von %1 löschen?</numerusform>
        </translation>
    </message>
    <message>
        <source>This action cannot be undone.</source>
        <translation>Dies kann nicht rückgängig gemacht werden.</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>d</source>
        <extracomment>The key that answers Delete.</extracomment>
        <translation>l</translation>
    </message>
    <message>
        <source>An item named “%1” already exists in %2.</source>
        <translation>In %2 gibt es bereits ein Objekt namens „%1“.</translation>
    </message>
    <message>
        <source>Keep both, restoring this one under a new name, or skip it and leave it in the trash?</source>
        <translation>Beide behalten und dieses unter einem neuen Namen wiederherstellen, oder es überspringen und im Papierkorb lassen?</translation>
    </message>
    <message>
        <source>Keep Both</source>
        <translation>Beide behalten</translation>
    </message>
    <message>
        <source>Skip</source>
        <translation>Überspringen</translation>
    </message>
    <message numerus="yes">
        <source>%n item(s) could not be restored.</source>
        <translation>
            <numerusform>%n Objekt konnte nicht wiederhergestellt werden.</numerusform>
            <numerusform>%n Objekte konnten nicht wiederhergestellt werden.</numerusform>
        </translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>quillane::ListCommand</name>
    <message>
        <source>NAME</source>
        <translation>NAME</translation>
    </message>
    <message>
        <source>TRASH</source>
        <translation>PAPIERKORB</translation>
    </message>
    <message>
        <source>ITEMS</source>
        <translation>OBJEKTE</translation>
    </message>
    <message>
        <source>SIZE</source>
        <translation>GRÖSSE</translation>
    </message>
    <message>
        <source>(no trash folder)</source>
        <translation>(kein Papierkorb-Ordner)</translation>
    </message>
</context>
<context>
    <name>quillane::ListItem</name>
    <message>
        <source>Calculating...</source>
        <translation>Wird berechnet …</translation>
    </message>
    <message>
        <source>Empty</source>
        <translation>Leeren</translation>
    </message>
    <message>
        <source>Open Trash folder in the file manager</source>
        <translation>Papierkorb-Ordner in der Dateiverwaltung öffnen</translation>
    </message>
    <message>
        <source>%1, %2</source>
        <extracomment>The detail line of a row: the item count, then the size.</extracomment>
        <translation>%1, %2</translation>
    </message>
    <message numerus="yes">
        <source>%Ln item(s)</source>
        <translation>
            <numerusform>%Ln Objekt</numerusform>
            <numerusform>%Ln Objekte</numerusform>
        </translation>
    </message>
    <message>
        <source>A trash is being emptied. Quillane empties one trash at a time.</source>
        <translation>Ein Papierkorb wird gerade geleert. Quillane leert einen Papierkorb nach dem anderen.</translation>
    </message>
    <message>
        <source>Are you sure you want to empty the trash for %1?</source>
        <translation>Möchten Sie den Papierkorb von %1 wirklich leeren?</translation>
    </message>
    <message>
        <source>Clicking Delete will empty the trash for the selected volume. This action cannot be undone. 

 This alert can be enabled or disabled in Settings.</source>
        <translation>Mit „Löschen“ wird der Papierkorb des gewählten Laufwerks geleert. Dies kann nicht rückgängig gemacht werden. 

 Dieser Hinweis kann in den Einstellungen ein- oder ausgeschaltet werden.</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Delete</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>d</source>
        <extracomment>The key that answers Delete.</extracomment>
        <translation>l</translation>
    </message>
    <message>
        <source>Show the items in this trash</source>
        <translation>Die Objekte in diesem Papierkorb zeigen</translation>
    </message>
    <message>
        <source>Emptying the trash of %1</source>
        <translation>Papierkorb von %1 wird geleert</translation>
    </message>
    <message>
        <source>Empty the trash of %1</source>
        <translation>Papierkorb von %1 leeren</translation>
    </message>
    <message>
        <source>Show the trash of %1</source>
        <translation>Papierkorb von %1 zeigen</translation>
    </message>
    <message>
        <source>Show Items</source>
        <translation>Objekte zeigen</translation>
    </message>
</context>
<context>
    <name>quillane::LoginItemView</name>
    <message>
        <source>One Last Thing...</source>
        <translation>Noch eine Sache …</translation>
    </message>
    <message>
        <source>To make sure Quillane is ready when you need it, take a moment to add Quillane to the &apos;Startup Applications&apos; list. Click the button below to launch Quillane at every startup.</source>
        <translation>Damit Quillane bereit ist, wenn Sie es brauchen, nehmen Sie es in die Liste der Startprogramme auf. Klicken Sie auf den Knopf unten, um Quillane bei jeder Anmeldung zu starten.</translation>
    </message>
    <message>
        <source>Launch Quillane at Startup</source>
        <translation>Quillane beim Anmelden starten</translation>
    </message>
    <message>
        <source>No Thanks</source>
        <translation>Nein, danke</translation>
    </message>
</context>
<context>
    <name>quillane::SettingsView</name>
    <message>
        <source>Ask before emptying trash</source>
        <translation>Vor dem Leeren des Papierkorbs nachfragen</translation>
    </message>
    <message>
        <source>Launch Quillane on login</source>
        <translation>Quillane beim Anmelden starten</translation>
    </message>
    <message>
        <source>Warn before quitting Quillane</source>
        <translation>Vor dem Beenden von Quillane warnen</translation>
    </message>
</context>
<context>
    <name>quillane::SetupPage</name>
    <message>
        <source>Copy</source>
        <translation>Kopieren</translation>
    </message>
    <message>
        <source>Command to run in a terminal</source>
        <translation>In einem Terminal auszuführender Befehl</translation>
    </message>
    <message>
        <source>Copy the command</source>
        <translation>Den Befehl kopieren</translation>
    </message>
</context>
<context>
    <name>quillane::TerminationHelper</name>
    <message>
        <source>Are you sure you want to quit Quillane?</source>
        <translation>Möchten Sie Quillane wirklich beenden?</translation>
    </message>
    <message>
        <source>Quitting will remove Quillane from your tray. Trash will empty for all mounted volumes.</source>
        <translation>Beim Beenden verschwindet Quillane aus der Leiste. Der Papierkorb wird dann für alle eingehängten Laufwerke gemeinsam geleert.</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>quillane::TrashApp</name>
    <message>
        <source>The trash of %1 is already being emptied by another Quillane. Nothing was removed.</source>
        <translation>Der Papierkorb von %1 wird bereits von einem anderen Quillane geleert. Es wurde nichts entfernt.</translation>
    </message>
    <message>
        <source>The trash of %1 could not be emptied: %2</source>
        <translation>Der Papierkorb von %1 konnte nicht geleert werden: %2</translation>
    </message>
    <message>
        <source>Emptying the trash of %1 stopped: %2
What was not removed yet is still in the trash.</source>
        <translation>Das Leeren des Papierkorbs von %1 wurde abgebrochen: %2
Was noch nicht entfernt wurde, liegt weiter im Papierkorb.</translation>
    </message>
    <message>
        <source>The trash of %1 could not be put fully in order:</source>
        <translation>Der Papierkorb von %1 konnte nicht vollständig bereinigt werden:</translation>
    </message>
    <message>
        <source>Check for Updates</source>
        <translation>Nach Aktualisierungen suchen</translation>
    </message>
    <message>
        <source>Settings...</source>
        <translation>Einstellungen …</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Quillane Settings</source>
        <translation>Quillane-Einstellungen</translation>
    </message>
    <message>
        <source>Open Quillane</source>
        <translation>Quillane öffnen</translation>
    </message>
    <message numerus="yes">
        <source>The helper did not remove %n item(s) from the trash of %1; they are still there:</source>
        <translation>
            <numerusform>Der Hilfsdienst hat %n Objekt nicht aus dem Papierkorb von %1 entfernt; es liegt noch dort:</numerusform>
            <numerusform>Der Hilfsdienst hat %n Objekte nicht aus dem Papierkorb von %1 entfernt; sie liegen noch dort:</numerusform>
        </translation>
    </message>
    <message>
        <source>Check for Updates...</source>
        <translation>Nach Aktualisierungen suchen …</translation>
    </message>
    <message>
        <source>Quit Quillane</source>
        <translation>Quillane beenden</translation>
    </message>
    <message>
        <source>Emptied the trash of %1</source>
        <translation>Papierkorb von %1 geleert</translation>
    </message>
    <message>
        <source>%1 freed</source>
        <translation>%1 freigegeben</translation>
    </message>
    <message numerus="yes">
        <source>Deleted %n item(s) from the trash of %1</source>
        <translation>
            <numerusform>%n Objekt aus dem Papierkorb von %1 gelöscht</numerusform>
            <numerusform>%n Objekte aus dem Papierkorb von %1 gelöscht</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>quillane::TrashContents</name>
    <message>
        <source>The record of this item is missing or unreadable.</source>
        <translation>Der Eintrag zu diesem Objekt fehlt oder ist nicht lesbar.</translation>
    </message>
    <message>
        <source>Name</source>
        <translation>Name</translation>
    </message>
    <message>
        <source>Original Location</source>
        <translation>Ursprünglicher Ort</translation>
    </message>
    <message>
        <source>Deleted</source>
        <translation>Gelöscht am</translation>
    </message>
    <message>
        <source>Size</source>
        <translation>Größe</translation>
    </message>
    <message>
        <source>Unknown</source>
        <translation>Unbekannt</translation>
    </message>
</context>
<context>
    <name>quillane::TrashEmptier</name>
    <message>
        <source>another emptying of this trash is under way</source>
        <translation>dieser Papierkorb wird bereits geleert</translation>
    </message>
</context>
<context>
    <name>quillane::Updater</name>
    <message>
        <source>You’re up to date!</source>
        <translation>Sie sind auf dem neuesten Stand!</translation>
    </message>
    <message>
        <source>Quillane %1 is the newest version available.</source>
        <translation>Quillane %1 ist die neueste verfügbare Version.</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Quillane %1 is now available; you have %2.</source>
        <translation>Quillane %1 ist jetzt verfügbar; Sie haben %2.</translation>
    </message>
    <message>
        <source> Install it with your package manager, as Quillane was installed from a package.</source>
        <translation> Installieren Sie es mit Ihrer Paketverwaltung, da Quillane aus einem Paket installiert wurde.</translation>
    </message>
    <message>
        <source> Would you like to see what is new and download it?</source>
        <translation> Möchten Sie sehen, was neu ist, und es herunterladen?</translation>
    </message>
    <message>
        <source>View Release</source>
        <translation>Version ansehen</translation>
    </message>
    <message>
        <source>Later</source>
        <translation>Später</translation>
    </message>
    <message>
        <source>A new version of Quillane is available!</source>
        <translation>Eine neue Version von Quillane ist verfügbar!</translation>
    </message>
    <message>
        <source>Update Check Failed</source>
        <translation>Suche nach Aktualisierungen fehlgeschlagen</translation>
    </message>
    <message>
        <source>The check for updates could not be made. %1</source>
        <translation>Die Suche nach Aktualisierungen war nicht möglich. %1</translation>
    </message>
    <message>
        <source>Check for updates automatically?</source>
        <translation>Automatisch nach Aktualisierungen suchen?</translation>
    </message>
    <message>
        <source>Quillane can look for a newer version once a day and tell you when there is one. You can still check at any time from its menu.</source>
        <translation>Quillane kann einmal am Tag nach einer neueren Version suchen und Ihnen Bescheid geben, wenn es eine gibt. Über das Menü können Sie jederzeit auch selbst suchen.</translation>
    </message>
    <message>
        <source>Check Automatically</source>
        <translation>Automatisch suchen</translation>
    </message>
    <message>
        <source>Don’t Check</source>
        <translation>Nicht suchen</translation>
    </message>
    <message>
        <source>The update server answered with HTTP status %1.</source>
        <translation>Der Aktualisierungsserver antwortete mit HTTP-Status %1.</translation>
    </message>
    <message>
        <source>The update server answered with HTTP status %1 (%2).</source>
        <translation>Der Aktualisierungsserver antwortete mit HTTP-Status %1 (%2).</translation>
    </message>
    <message>
        <source>The update server did not answer within %1 seconds.</source>
        <translation>Der Aktualisierungsserver hat nicht innerhalb von %1 Sekunden geantwortet.</translation>
    </message>
    <message>
        <source>The update feed is larger than %1 KB, far larger than any feed of ours.</source>
        <translation>Der Aktualisierungs-Feed ist größer als %1 KB, weit größer als jeder unserer Feeds.</translation>
    </message>
    <message>
        <source>This copy of Quillane does not know its own build number.</source>
        <translation>Diese Kopie von Quillane kennt ihre eigene Build-Nummer nicht.</translation>
    </message>
</context>
<context>
    <name>quillane::UserDefaults</name>
    <message>
        <source>Your settings cannot be saved: %1 cannot be written. Quillane uses its defaults until it can.</source>
        <translation>Ihre Einstellungen können nicht gespeichert werden: %1 ist nicht beschreibbar. Bis dahin verwendet Quillane die Standardeinstellungen.</translation>
    </message>
</context>
<context>
    <name>quillane::VolumeObserver</name>
    <message>
        <source>the helper daemon stopped answering</source>
        <translation>der Hilfsdienst antwortet nicht mehr</translation>
    </message>
    <message>
        <source>%1 was unmounted while its trash was being emptied</source>
        <translation>%1 wurde ausgehängt, während sein Papierkorb geleert wurde</translation>
    </message>
    <message>
        <source>There was a problem deleting the file.
(%1)</source>
        <translation>Beim Löschen der Datei ist ein Problem aufgetreten.
(%1)</translation>
    </message>
</context>
<context>
    <name>quillane::WidgetAlerts</name>
    <message>
        <source>Do not show this message again</source>
        <translation>Diese Meldung nicht mehr anzeigen</translation>
    </message>
</context>
<context>
    <name>quillane::XPCClient</name>
    <message>
        <source>The Quillane helper is required for Quillane to function correctly. Restarting your computer and relaunching Quillane may address the issue.</source>
        <translation>Quillane benötigt den Quillane-Hilfsdienst, um richtig zu funktionieren. Ein Neustart des Rechners und von Quillane kann das Problem beheben.</translation>
    </message>
    <message>
        <source>Start Quillane Helper timed out</source>
        <translation>Zeitüberschreitung beim Starten des Quillane-Hilfsdienstes</translation>
    </message>
    <message>
        <source>Keep Trying</source>
        <translation>Weiter versuchen</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>Registering Quillane Helper timed out</source>
        <translation>Zeitüberschreitung beim Registrieren des Quillane-Hilfsdienstes</translation>
    </message>
    <message>
        <source>the system bus is not reachable</source>
        <translation>der Systembus ist nicht erreichbar</translation>
    </message>
    <message>
        <source>Uninstall Failed</source>
        <translation>Deinstallation fehlgeschlagen</translation>
    </message>
    <message>
        <source>Quillane came with the package %1, which only the package manager removes. Run this command in a terminal: sudo apt remove %1</source>
        <translation>Quillane wurde mit dem Paket %1 installiert, das nur die Paketverwaltung entfernen kann. Führen Sie diesen Befehl in einem Terminal aus: sudo apt remove %1</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
</context>
</TS>
