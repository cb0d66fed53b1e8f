#pragma once

// Whether the USB multiplexing service (usbmuxd, or whatever USBMUXD_SOCKET_ADDRESS names)
// answers at all. An empty device list alone cannot tell "nothing plugged in" from "the service
// is not running"; this can, so the user can be told to install or start usbmuxd.
bool usbmuxdIsReachable();
