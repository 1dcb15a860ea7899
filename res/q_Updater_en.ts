<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US" sourcelanguage="en">
<context>
    <name>QObject</name>
    <message>
        <source>KX_BUG01 </source>
        <translation>Specifying the folder where the update package is stored
(Specifying the -upDir option) is missing.</translation>
    </message>
    <message>
        <source>ER_MSG01</source>
        <translation>Install the software on this device.
Are you sure?</translation>
    </message>
    <message>
        <source>ER_MSG02</source>
        <translation>Installation could not be started
because multiple update files were found on the USB flash drive.
</translation>
    </message>
    <message>
        <source>ER_MSG03</source>
        <translation>There is no installation software in the USB flash drive.</translation>
    </message>
    <message>
        <source>ER_MSG04</source>
        <translation>Failed to load the installation file in the USB flash drive.
The file may be corrupted.</translation>
    </message>
    <message>
        <source>ER_MSG05</source>
        <translation>Unable to recognize the USB flash drive.</translation>
    </message>
    <message>
        <source>ER_MSG10_INSTALL_START</source>
        <translation> Start the installation.
Do not turn off the power during the installation.
If you turn off the power, the files may be corrupted.</translation>
    </message>
    <message>
        <source>ER_MSG90</source>
        <translation>The installation completed successfully.</translation>
    </message>
    <message>
        <source>ER_MSG91</source>
        <translation>The installation failed.</translation>
    </message>
    <message>
        <source>ER_MSG92_REBOOTING</source>
        <translation>Reboot....</translation>
    </message>
    <message>
        <source>ER_MSG99</source>
        <translation>Remove the USB flash drive.
If you remove, this will reboot.</translation>
    </message>
</context>
</TS>
