#include "UsbmuxdStatus.h"

#include <usbmuxd.h>

bool usbmuxdIsReachable()
{
    usbmuxd_device_info_t* list = nullptr;
    const int count = usbmuxd_get_device_list(&list);
    if (list)
        usbmuxd_device_list_free(&list);
    return count >= 0;
}
