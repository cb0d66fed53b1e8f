#include "DeviceRegistry.h"
#include "Log.h"
#include "MuxServer.h"

#include <QCommandLineParser>
#include <QStringList>

#include <csignal>
#include <cstdio>
#include <pthread.h>
#include <unistd.h>

namespace {

const char kHelp[] = R"(Usage: ombrelo-devicesim --socket PATH [--verbose] DEVICE_DIR...
       ombrelo-devicesim --socket PATH [--verbose] --devices-dir DIR

A simulated iPhone (or several) behind a usbmuxd on a UNIX socket. The unmodified
libimobiledevice client, and every tool built on it, talks to it when the environment
variable USBMUXD_SOCKET_ADDRESS is set to UNIX:<socket path>, for example:

  ombrelo-devicesim --socket /tmp/sim.sock phone1 &
  USBMUXD_SOCKET_ADDRESS=UNIX:/tmp/sim.sock idevice_id -l

Each device folder holds device.json (the phone's identity and behaviour) and media/ (the
phone's media root, served read-only by AFC). With --devices-dir, every sub-folder of DIR is a
plugged-in phone, and DIR is read again at every device-list request: moving a folder out
unplugs that phone (its open connections are closed), moving one in plugs it in. device.json
files are read again at every device-list request too, so faults can be changed while the
simulator runs.

Options:
  --socket PATH        the UNIX socket to listen on (a stale socket there is replaced)
  --devices-dir DIR    serve every sub-folder of DIR as a device
  --verbose            log one line per request to stderr
  -h, --help           show this text

device.json (only "udid" is required; an unknown key is an error that names it):
  "udid"            40 hexadecimal digits, or 8 and 16 joined by "-"
  "name"            the device name (default "iPhone")
  "productType"     for example "iPhone15,3" (the default) or "iPad13,1"
  "productVersion"  the iOS version, for example "17.5" (the default)
  "connection"      "USB" (the default) or "Network"; network devices are listed as such
  "listedTwice"     true: usbmuxd lists the device twice, under two device ids
  "faults"          an object of misbehaviours, all optional:
    "lockdownError"          a lockdown error name answered at the handshake (StartSession):
                             "PasswordProtected" (-17), "UserDeniedPairing" (-18),
                             "PairingDialogResponsePending" (-19), "InvalidHostID" (-21),
                             or any other name (the client then reports -256)
    "startServiceError"      a lockdown error name answered when AFC is requested,
                             for example "InvalidService" (-27)
    "deviceNameMissing"      true: lockdown has no DeviceName
    "productTypeMissing"     true: lockdown has no ProductType
    "productVersionMissing"  true: lockdown has no ProductVersion
    "failPaths"              device paths that fail, each with AFC error numbers:
                             {"/DCIM/100APPLE/IMG_0001.HEIC": {"open": 10},
                              "/DCIM/100APPLE/IMG_0002.MOV": {"read": 4, "readAfterBytes": 65536},
                              "/DCIM/101APPLE": {"list": 10}}
                             "open" fails opening the file, "read" fails reading it (after
                             "readAfterBytes" bytes, default 0), "list" fails listing a folder;
                             "emptyListing": true answers a listing with nothing at all;
                             "endAfterBytes": N, reads report the end of the file after N
                             bytes while its size stays the full one (a read cut short);
                             "stallAfterBytes": N, the phone freezes once N bytes of the
                             file have gone out, for each opening of the file (below)
    "dropAfterBytes"         an AFC connection is cut once it has served this many file bytes,
                             mid-reply, as when the cable is pulled
    "stallAfterBytes"        an AFC connection freezes once it has served this many file
                             bytes: the read that would go further gets no answer, nor does
                             anything after it on that connection, while the connection
                             stays open; other connections and phones are still answered
    "stallSeconds"           how long a freeze lasts, beside either "stallAfterBytes"
                             (seconds, fractions allowed); 0 or absent: until the client
                             hangs up or the simulator stops
    "bytesPerSecond"         the link's speed, shared by all connections of the device
                             (40000000 is about USB 2)

AFC serves directory listing, file and device information, open (read-only), read, seek,
tell, lock and close, with the real AFC error numbers (8: not found, 9: is a folder,
10: permission denied); operations that would change the phone answer 10. Paths never leave
media/: ".." and symbolic links are refused with error 10, and links are not listed.

The simulator stops cleanly on SIGINT or SIGTERM and removes its socket.
Exit status: 0 after a clean stop, 1 when it cannot listen, 2 for bad arguments or device.json.
)";

int usageError(const QString& message)
{
    std::fprintf(stderr, "ombrelo-devicesim: %s\nRun \"ombrelo-devicesim --help\" for usage.\n",
                 message.toLocal8Bit().constData());
    return 2;
}

} // namespace

int main(int argc, char* argv[])
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);

    QCommandLineParser parser;
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser.addOptions({{"socket", "", "PATH"}, {"devices-dir", "", "DIR"}, {"verbose", ""}, {{"h", "help"}, ""}});
    parser.addPositionalArgument("DEVICE_DIR", "");
    if (!parser.parse(arguments))
        return usageError(parser.errorText() + ".");
    if (parser.isSet("help")) {
        std::fputs(kHelp, stdout);
        return 0;
    }
    const QStringList folders = parser.positionalArguments();
    if (!parser.isSet("socket"))
        return usageError("--socket PATH is required.");
    if (parser.isSet("devices-dir") == !folders.isEmpty())
        return usageError("give either device folders or --devices-dir DIR.");
    Log::setVerbose(parser.isSet("verbose"));

    // Every thread inherits this mask; the main thread takes the stopSignals through a signalfd.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    std::unique_ptr<DeviceRegistry> registry;
    try {
        registry = parser.isSet("devices-dir") ? DeviceRegistry::forDevicesDir(parser.value("devices-dir"))
                                               : DeviceRegistry::forFolders(folders);
    } catch (const ConfigError& error) {
        Log::line(QString::fromStdString(error.what()));
        return 2;
    }
    MuxServer server(parser.value("socket"), *registry);
    const int code = server.run();
    std::fflush(stderr);
    // Connection threads that did not finish in time must not outlive the objects they use.
    _exit(code);
}
