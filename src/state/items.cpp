// The item lines of each level, once as "not passed" and once as "passed". The flag files hold the
// not-passed line and get its last character overwritten by the result, and the screen's column
// alignment rests on the blank after "1." to "9.": the texts are a format, not prose.
#include "runstate.h"

#define NOT_PASSED(line) QStringLiteral(line ": 0")
#define PASSED(line) QStringLiteral(line ": 1")

// clang-format off
#define ICT_ITEMS(LINE) \
    LINE("1. Read HMI Model"), \
    LINE("2. Read Image CRC"), \
    LINE("3. Read Version"), \
    LINE("4. COM1 RS232 Test"), \
    LINE("5. COM1 RS485 Test"), \
    LINE("6. COM2 RS422 Test"), \
    LINE("7. DDR Test"), \
    LINE("8. LCD Circuit Test"), \
    LINE("9. Buzzer Circuit Test"), \
    LINE("10.Write SemiMachineID"), \
    LINE("11.TP Circuit Test"), \
    LINE("12.RTC Test"), \
    LINE("13.USB H/D Test"), \
    LINE("14.Battery Test"), \
    LINE("15.Check NAND"), \
    LINE("16.ICT Test END Check")

#define T1_ITEMS(LINE) \
    LINE("1. Read HMI Model"), \
    LINE("2. Read Image CRC"), \
    LINE("3. Read Version"), \
    LINE("4. COM1 RS232 Test"), \
    LINE("5. COM1 RS485 Test"), \
    LINE("6. COM2 RS422 Test"), \
    LINE("7. DDR Test"), \
    LINE("8. LCD Color Test"), \
    LINE("9. LCD Backlight Test"), \
    LINE("10.Buzzer Circuit Test"), \
    LINE("11.Write Machine ID"), \
    LINE("12.TP Calibrate Test"), \
    LINE("13.RTC Calibrate Test"), \
    LINE("14.USB H/D Test"), \
    LINE("15.Battery Test"), \
    LINE("16.Set Station Num"), \
    LINE("17.Read Machine ID"), \
    LINE("18.Read TP Pressure"), \
    LINE("19.T1 Test END Check")

#define BI_ITEMS(LINE) \
    LINE("1. LCD Color Test"), \
    LINE("2. DDR Test"), \
    LINE("3. Battery Test"), \
    LINE("4. Read TP Pressure"), \
    LINE("5. USB H/D Test"), \
    LINE("6. BI Test END Check")

#define T2_ITEMS(LINE) \
    LINE("1. Read HMI Model"), \
    LINE("2. Read Image CRC"), \
    LINE("3. Read Version"), \
    LINE("4. COM1 RS232 Test"), \
    LINE("5. COM1 RS485 Test"), \
    LINE("6. COM2 RS422 Test"), \
    LINE("7. DDR Test"), \
    LINE("8. LCD Color Test"), \
    LINE("9. LCD Backlight Test"), \
    LINE("10.Buzzer Circuit Test"), \
    LINE("11.TP Check Test"), \
    LINE("12.RTC Check Test"), \
    LINE("13.USB H/D Test"), \
    LINE("14.Battery Test"), \
    LINE("15.Read Machine ID"), \
    LINE("16.Read TP Pressure"), \
    LINE("17.T2 Test END Check")

// clang-format on

qint32 ICT_Item_Status[IctItemCount];
const QString ICT_Item_UnPASS[IctItemCount] = {ICT_ITEMS(NOT_PASSED)};
const QString ICT_Item_PASS[IctItemCount] = {ICT_ITEMS(PASSED)};

qint32 T1_Item_Status[T1ItemCount];
const QString T1_Item_UnPASS[T1ItemCount] = {T1_ITEMS(NOT_PASSED)};
const QString T1_Item_PASS[T1ItemCount] = {T1_ITEMS(PASSED)};

qint32 BI_Item_Status[BiItemCount];
const QString BI_Item_UnPASS[BiItemCount] = {BI_ITEMS(NOT_PASSED)};
const QString BI_Item_PASS[BiItemCount] = {BI_ITEMS(PASSED)};

qint32 T2_Item_Status[T2ItemCount];
const QString T2_Item_UnPASS[T2ItemCount] = {T2_ITEMS(NOT_PASSED)};
const QString T2_Item_PASS[T2ItemCount] = {T2_ITEMS(PASSED)};

// "Batery" is what the operators know from the screens of panels in the field; it stays.
const QString EMS_TEST[EmsItemCount] = {
    QStringLiteral("1. 5V"),         QStringLiteral("2. 3.3V"),
    QStringLiteral("3. Batery"),     QStringLiteral("4. RTC"),
    QStringLiteral("5. COM1 RS232"), QStringLiteral("6. COM1 RS485"),
    QStringLiteral("7. COM2 RS485"), QStringLiteral("8. USB Host"),
    QStringLiteral("9. USB Slave")};
qint32 EMS_Item_Status_Pass[EmsItemCount], EMS_Item_Status_Fail[EmsItemCount];

const QString EMI_TEST[EmiItemCount] = {
    QStringLiteral("1. COM1 RS232"), QStringLiteral("2. COM1 RS485"),
    QStringLiteral("3. COM2 RS485"), QStringLiteral("4. USB Host"), QStringLiteral("5. USB Slave")};
qint32 EMI_Item_Status_Pass[EmiItemCount], EMI_Item_Status_Fail[EmiItemCount];

const QString RD_TEST[RdItemCount] = {
    QStringLiteral("1. 5V"),         QStringLiteral("2. 3.3V"),
    QStringLiteral("3. Batery"),     QStringLiteral("4. RTC"),
    QStringLiteral("5. COM1 RS232"), QStringLiteral("6. COM1 RS485"),
    QStringLiteral("7. COM2 RS485"), QStringLiteral("8. USB Host"),
    QStringLiteral("9. USB Slave"),  QStringLiteral("10.SRAM"),
    QStringLiteral("11.SDRAM(DDR)"), QStringLiteral("12.LCD Show R"),
    QStringLiteral("13.LCD Show G"), QStringLiteral("14.LCD Show B"),
    QStringLiteral("15.TouchPanel"), QStringLiteral("16.BackLight"),
    QStringLiteral("17.Buzzer")};
qint32 RD_Item_Status_Pass[RdItemCount], RD_Item_Status_Fail[RdItemCount];
