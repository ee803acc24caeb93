// The board's buzzer: an input device that takes sound events, /dev/input/event1 as the second of
// the machine. What is written to it goes on, as the kernel hands it to a driver, to the port that
// the argument names.
#include <fcntl.h>
#include <linux/uinput.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

_Static_assert(sizeof(struct input_event) == 16, "events as wide as the panel's kernel has them");

int main(int argc, char **argv)
{
    const int device = open("/dev/uinput", O_RDWR);
    const int out = argc > 1 ? open(argv[1], O_WRONLY) : -1;
    struct uinput_setup setup = {.id = {.bustype = BUS_HOST}};
    strcpy(setup.name, "buzzer");
    ioctl(device, UI_SET_EVBIT, EV_SND);
    for (int code = 0; code <= SND_MAX; ++code) {
        ioctl(device, UI_SET_SNDBIT, code);
    }
    if (out < 0 || ioctl(device, UI_DEV_SETUP, &setup) < 0 || ioctl(device, UI_DEV_CREATE) < 0) {
        perror("buzzer");
        return 1;
    }
    struct input_event event;
    while (read(device, &event, sizeof event) == sizeof event) {
        if (write(out, &event, sizeof event) != sizeof event) {
            perror("buzzer: port");
        }
    }
    return 0;
}
