// Reading what follows the first eleven bytes of a long request, into UART_Buffer from byte 11 on.
#pragma once

// How a request ended.
enum class RequestEnd {
    Complete,
    Incomplete, // no answer; the tick ends as usual
    Abandoned // no answer; the tick ends at once, with the buffer as it is
};

RequestEnd readNothingMore();

// 12 bytes.
RequestEnd readClockRequest();

// 17 bytes, then to the line feed. Waits for a sender however slow; a line that passes what the
// buffer holds is abandoned.
RequestEnd readMachineId();

// 12 bytes, then to the line feed or to the 31st byte of all, whichever comes first.
RequestEnd readSemiMachineId();
