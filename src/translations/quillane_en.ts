<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>quillane::Appcast</name>
    <message>
        <source>The feed is not well-formed XML (line %1: %2).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The feed is empty.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The feed is not an RSS feed (it starts with &lt;%1&gt;).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The feed lists no release with a build number.</source>
        <translation type="unfinished"></translation>
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
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>With list: print a JSON array.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>With empty: do not ask first.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Also print the diagnostic lines of the tray application, on standard error.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>list or empty</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>quillane: unknown command &quot;%1&quot;; see quillane --help</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::Debug</name>
    <message>
        <source>Quillane Alert</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Ok</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::DesktopWorkspace</name>
    <message>
        <source>could not start</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::DisplayText</name>
    <message numerus="yes">
        <source>%Ln byte(s)</source>
        <translation>
            <numerusform>%Ln byte</numerusform>
            <numerusform>%Ln bytes</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>quillane::EllipsisMenu</name>
    <message>
        <source>About Quillane</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check for Updates...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Settings...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Contact Support...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Uninstall Quillane...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit Quillane</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Helper not running</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Helper Running. Build: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quillane
Version %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Uninstalling Quillane</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Are you sure that you want to uninstall Quillane?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Menu</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::EmptyCommand</name>
    <message>
        <source>it is no location of the list; see quillane list</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>it is on a volume mounted read-only, where nothing can be removed</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>Empty the trash of %1 (%n item(s))? The items cannot be restored. [y/N] </source>
        <translation>
            <numerusform>Empty the trash of %1 (%n item)? The items cannot be restored. [y/N] </numerusform>
            <numerusform>Empty the trash of %1 (%n items)? The items cannot be restored. [y/N] </numerusform>
        </translation>
    </message>
    <message>
        <source>y yes</source>
        <extracomment>What agrees to the question that ends in [y/N]: its letter, then the word.</extracomment>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>not sent to the helper daemon</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the trash of %1 was not emptied: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>emptying the trash of %1 stopped: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the trash of %1 holds nothing to remove</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 stayed: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the helper daemon stopped answering</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>%n item(s) need the helper daemon, which is not reachable: %1</source>
        <translation>
            <numerusform>%n item needs the helper daemon, which is not reachable: %1</numerusform>
            <numerusform>%n items need the helper daemon, which is not reachable: %1</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>the helper daemon did not remove %n item(s)</source>
        <translation>
            <numerusform>the helper daemon did not remove %n item</numerusform>
            <numerusform>the helper daemon did not remove %n items</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>&quot;%1&quot; names %n locations; say which by its location or trash folder:</source>
        <translation>
            <numerusform>&quot;%1&quot; names %n location; say which by its location or trash folder:</numerusform>
            <numerusform>&quot;%1&quot; names %n locations; say which by its location or trash folder:</numerusform>
        </translation>
    </message>
    <message>
        <source>no trash at &quot;%1&quot;: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>nothing was removed</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::FDAView</name>
    <message>
        <source>Welcome to Quillane</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The Quillane app can be used to empty the trash on each volume individually. Click the Quillane icon in your desktop&apos;s panel, and empty the trash for individual volumes.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quillane requires access to your trash</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>To have access to empty your trash, Quillane needs to be able to list your trash folder. </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> To fix it, run this command in a terminal, then quit and reopen Quillane:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Fix It with the Quillane Helper</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Waiting for an administrator&apos;s approval…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The helper could not fix it: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Your trash folder is yours again. Quit and reopen Quillane to empty your trash.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Close</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>It can now: quit and reopen Quillane.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The folder ‘%1’ belongs to %2, not to you, as happens when a file manager was run with sudo.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The folder ‘%1’ has the permissions %2, which keep you out of it.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The folder ‘%1’ cannot be listed (%2). A confinement profile, such as AppArmor&apos;s, may keep Quillane out of it: allow Quillane to read it there, then quit and reopen Quillane.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::HelperView</name>
    <message>
        <source>Quillane Needs Authorization</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sometimes, your trash might contain items that require extra permission to delete. To grant this permission, install the Quillane helper, which comes with the Quillane package. Install the package with this command, then click Check Again:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check Again</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::ItemsWindow</name>
    <message>
        <source>Choose where to restore “%1”</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Trash of %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Search</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Search the trash of %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Items in the trash of %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Restore</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Restore the selected items</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delete</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delete the selected items</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>%Ln item(s)</source>
        <translation>
            <numerusform>%Ln item</numerusform>
            <numerusform>%Ln items</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>%1 of %Ln item(s)</source>
        <translation>
            <numerusform>%1 of %Ln item</numerusform>
            <numerusform>%1 of %Ln items</numerusform>
        </translation>
    </message>
    <message numerus="yes">
        <source>Are you sure you want to delete %n item(s) from the trash of %1?</source>
        <translation>
            <numerusform>Are you sure you want to delete %n item from the trash of %1?</numerusform>
            <numerusform>Are you sure you want to delete %n items from the trash of %1?</numerusform>
        </translation>
    </message>
    <message>
        <source>This action cannot be undone.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>d</source>
        <extracomment>The key that answers Delete.</extracomment>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>An item named “%1” already exists in %2.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Keep both, restoring this one under a new name, or skip it and leave it in the trash?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Keep Both</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Skip</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>%n item(s) could not be restored.</source>
        <translation>
            <numerusform>%n item could not be restored.</numerusform>
            <numerusform>%n items could not be restored.</numerusform>
        </translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::ListCommand</name>
    <message>
        <source>NAME</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>TRASH</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>ITEMS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SIZE</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>(no trash folder)</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::ListItem</name>
    <message>
        <source>Calculating...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Empty</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open Trash folder in the file manager</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1, %2</source>
        <extracomment>The detail line of a row: the item count, then the size.</extracomment>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>%Ln item(s)</source>
        <translation>
            <numerusform>%Ln item</numerusform>
            <numerusform>%Ln items</numerusform>
        </translation>
    </message>
    <message>
        <source>A trash is being emptied. Quillane empties one trash at a time.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Are you sure you want to empty the trash for %1?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Clicking Delete will empty the trash for the selected volume. This action cannot be undone. 

 This alert can be enabled or disabled in Settings.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delete</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>d</source>
        <extracomment>The key that answers Delete.</extracomment>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show the items in this trash</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Emptying the trash of %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Empty the trash of %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show the trash of %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show Items</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::LoginItemView</name>
    <message>
        <source>One Last Thing...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>To make sure Quillane is ready when you need it, take a moment to add Quillane to the &apos;Startup Applications&apos; list. Click the button below to launch Quillane at every startup.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Launch Quillane at Startup</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No Thanks</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::SettingsView</name>
    <message>
        <source>Ask before emptying trash</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Launch Quillane on login</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Warn before quitting Quillane</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::SetupPage</name>
    <message>
        <source>Copy</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Command to run in a terminal</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Copy the command</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::TerminationHelper</name>
    <message>
        <source>Are you sure you want to quit Quillane?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quitting will remove Quillane from your tray. Trash will empty for all mounted volumes.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::TrashApp</name>
    <message>
        <source>The trash of %1 is already being emptied by another Quillane. Nothing was removed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The trash of %1 could not be emptied: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Emptying the trash of %1 stopped: %2
What was not removed yet is still in the trash.</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>The helper did not remove %n item(s) from the trash of %1; they are still there:</source>
        <translation>
            <numerusform>The helper did not remove 1 item from the trash of %1; it is still there:</numerusform>
            <numerusform>The helper did not remove %n items from the trash of %1; they are still there:</numerusform>
        </translation>
    </message>
    <message>
        <source>The trash of %1 could not be put fully in order:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check for Updates</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Settings...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quillane Settings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open Quillane</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check for Updates...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit Quillane</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Emptied the trash of %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 freed</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>Deleted %n item(s) from the trash of %1</source>
        <translation>
            <numerusform>Deleted %n item from the trash of %1</numerusform>
            <numerusform>Deleted %n items from the trash of %1</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>quillane::TrashContents</name>
    <message>
        <source>The record of this item is missing or unreadable.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Name</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Original Location</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Deleted</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Size</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Unknown</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::TrashEmptier</name>
    <message>
        <source>another emptying of this trash is under way</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::Updater</name>
    <message>
        <source>You’re up to date!</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quillane %1 is the newest version available.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quillane %1 is now available; you have %2.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> Install it with your package manager, as Quillane was installed from a package.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> Would you like to see what is new and download it?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>View Release</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Later</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>A new version of Quillane is available!</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Update Check Failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The check for updates could not be made. %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check for updates automatically?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quillane can look for a newer version once a day and tell you when there is one. You can still check at any time from its menu.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check Automatically</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Don’t Check</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update server answered with HTTP status %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update server answered with HTTP status %1 (%2).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update server did not answer within %1 seconds.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update feed is larger than %1 KB, far larger than any feed of ours.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>This copy of Quillane does not know its own build number.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::UserDefaults</name>
    <message>
        <source>Your settings cannot be saved: %1 cannot be written. Quillane uses its defaults until it can.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::VolumeObserver</name>
    <message>
        <source>%1 was unmounted while its trash was being emptied</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>There was a problem deleting the file.
(%1)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the helper daemon stopped answering</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::WidgetAlerts</name>
    <message>
        <source>Do not show this message again</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>quillane::XPCClient</name>
    <message>
        <source>The Quillane helper is required for Quillane to function correctly. Restarting your computer and relaunching Quillane may address the issue.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start Quillane Helper timed out</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Keep Trying</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Registering Quillane Helper timed out</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the system bus is not reachable</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Uninstall Failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quillane came with the package %1, which only the package manager removes. Run this command in a terminal: sudo apt remove %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
