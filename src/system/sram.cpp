#include "sram.h"

#include "files.h"

#include <fcntl.h>

bool clearSram()
{
    File sram(SramDevice, O_RDWR);
    if (!sram.isOpen())
        return false;
    const QByteArray zeroes(SramSize, '\0');
    sram.write(zeroes.constData(), zeroes.size());
    return true;
}
