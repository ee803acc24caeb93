#pragma once

#include <QString>
#include <QVector>

// The fault matrix as data. Item numbers count from 1, 0 for none; results as in the flag file.
struct Row {
    const char *request; // a code, or what Lane::requestOf() makes of it
    const char *fault; // "" for none: then the first reply is due to the fixture or panel as it is
    const char *bad,
        *good; // replies: four digits as a frame, all else as it stands; null: not asked
    int item;
    char badResult = 'F';
    const char *kind = ""; // fault that is no fault here: the fixture is of that kind

    QString name(const QString &lane) const
    {
        return QString("%1 %2 %3 %4").arg(lane, request, fault, kind).simplified();
    }
};

// Panels: how each starts, and what it goes through in this order. With `cycle` each fault is set
// before a power-on and cleared before the next.
struct Series {
    const char *name, *level;
    bool cycle;
    QVector<Row> rows;
};

constexpr char semiId[] = "SEMI25110001", machineId[] = "20254711T12345678",
               numberedId[] = "20254711W12345607"; // its factory numbers the panels in the ID

inline const QVector<Row> ictRows = {
    {"AB00", "", nullptr, "KLV-100\n", 1},
    {"AA00", "nand-crc:DEADBEEF", "DEADBEEF\n", "D8B172D0\n", 2, '1'},
    {"FF00", "", nullptr, "A.0123.120\n", 3},
    {"8000", "", nullptr, "8000", 4},
    {"8102", "com1-485:silent", "81F2", "8102", 5, 'F', "bus-echo"},
    {"8102", "com1-485:wrong", "81F2", "8102", 5, 'F', "bus-echo"},
    {"8102", "", "81F2", nullptr, 5}, // the answer passes for the echo
    {"8107", "com2-422:open", "81F7", "8107", 6},
    {"8107", "com2-422:wrong", "81F7", "8107", 6},
    {"8107", "com2-485:open", "81F3", "8107", 6},
    {"8107", "com2-485:wrong", "81F3", "8107", 6},
    {"810A", "com1-485:silent", "81F2", "810A", 5},
    {"810A", "com2-422:open", "81F7", "810A", 6},
    {"810A", "com2-485:open", "81F3", "810A", 0, 0},
    {"810A", "bus-echo", "81F2", "810A", 5},
    {"FF01", "tool", "ToolVer=0.00\r\n", "ToolVer=1.23\r\n", 0, 0},
    {"FF01", "bus-echo", "GET_TOOL_VER\r\n", nullptr, 0},
    {"8500", "ddr", "85F0", "8500", 7},
    {"8500", "ddr:0000000", "85F0", "8500", 7},
    {"8500", "ddr:silent", "85F0", "8500", 7},
    {"8500", "script:chk_ddr.sh=missing", "85F0", "8500", 7},
    {"9503", "lcm:1", "95E7", nullptr, 8},
    {"9503", "lcm:2", "95E6", nullptr, 8},
    {"9503", "script:fast_lcd_circuit_test_pattern.sh=missing", "95E7", "9503", 8},
    {"9509", "lcm:2", "95E6", nullptr, 8},
    {"9509", "script:lcd_circuit_test_init.sh=missing", "95E7", "9509", 8},
    {"9202", "microphone:noise", "92F3", "9202", 9},
    {"0602", "unwritable:HMI_SEMIMACHINE_ID.txt", "06F2", "0602", 10},
    {"0702", "lost:HMI_SEMIMACHINE_ID.txt", "07F2", "ID", 0},
    {"9002", "touch:shift=40", "( 440, 240)\r\n", "( 400, 240)\r\n", 11, '1'},
    {"8C00", "rtc:+2", "8CF0", "8C00", 12},
    {"A200", "usb:unplugged", "A2F0", "A200", 13},
    {"A200", "usb:other", "A2F0", "A200", 13},
    {"8800", "battery:2900", ":0002906E\r", ":000309F4\r", 14, '1'},
    {"8700", "", nullptr, "8700", 15},
    {"8700", "rootfs:1", "8700", nullptr, 15, '1'}, // once is enough
    {"CC10", "stick", "CCE0", "CC10", 0},
    {"CC11", "sd", "CCE1", "CC11", 0},
    {"CC00", "stick", "CCF0", "CC00", 0},
    {"CC00", "archive", "CCF0", "CC00", 0},
    {"CC01", "sd", "CCF1", "CC01", 0},
    {"CC01", "archive", "CCF1", "CC01", 0},
    {"0400", "", nullptr, "0400", 16},
};

inline const QVector<Row> t1Rows = {
    {"9504", "lcd:red", "9504 shows #000000", "9504 shows #ff0000", 8, '1'},
    {"9505", "lcd:green", "9505 shows #000000", "9505 shows #00ff00", 0},
    {"9506", "lcd:blue", "9506 shows #000000", "9506 shows #0000ff", 0},
    {"9301", "backlight", "9301 at 100 %", "9301 at 0 %", 9, '1'},
    {"9202", "microphone:deaf", "92F2", "9202", 10},
    {"0601", "unwritable:HMI_MACHINE_ID.txt", "06F1", "0601", 11},
    {"0701", "lost:HMI_MACHINE_ID.txt", "07F1", "ID", 17},
    {"A200", "usb:unplugged", "A2F0", "A200", 14},
    {"8800", "battery:3287", ":000328D5\r", ":000309F4\r", 15, '1'},
    {"058A00", "unwritable:HMI_STATION_NUM.txt", "8AF0", ":058A0071\r\n", 16, 0},
    // From here on the items that such an ID grants have passed already.
    {"W0601", "unwritable:HMI_STATION_NUM.txt", "06F1", "0601", 11},
    {"9003", "touch-pressure:37", "90F3", "9003", 18},
    {"9011", "lost:T1_TP_Value.txt", "9FF1", "line 1\r\n", 0},
    {"9021", "lost:T1_TP_Value.txt", "9FE1", "line 6\r\n", 0},
    {"9025", "lost:T1_TP_Value.txt", "9FE5", "line 10\r\n", 0},
    {"8E", "rtc:+200", "8EF0", "8E00", 0},
    {"8D", "rtc:+200", "8DF0", "8D00", 13},
    {"8E", "", "86FF", nullptr, 0}, // not before the next power-on
    {"0100", "", "01F0", nullptr, 19}, // the touch panel was not calibrated
};

inline const QVector<Row> biRows = {
    {"9507", "", nullptr, "9507", 1},
    {"8500", "ddr", "85F0", "8500", 2},
    {"8800", "battery:2949", ":0002946A\r", "0295", 3},
    {"8800", "battery:2952", "0295", nullptr, 3, '1'},
    {"9003", "touch-pressure:1", "90F3", "9003", 4},
    {"9003", "touch-pressure:-1", "90F3", "9003", 4},
    {"A200", "usb:other", "A2F0", "A200", 5},
    {"CC10", "stick", "CCE0", "CC10", 0},
    {"0200", "", nullptr, "0200", 6},
};

inline const QVector<Row> t2Rows = {
    {"8E", "rtc:+200", "8EF0", "8E00", 12},
    {"A200", "usb:unplugged", "A2F0", "A200", 13},
    {"8800", "battery:2900", ":0002906E\r", ":000309F4\r", 14, '1'},
    {"0701", "lost:HMI_MACHINE_ID.txt", "07F1", "ID", 15},
    {"9003", "touch-pressure:37", "90F3", "9003", 16},
    {"0603", "lost:HMI_SEMIMACHINE_ID.txt", "06F3", "0603", 0},
    {"9021", "lost:T2_TP_Value.txt", "9FE1", "line 1\r\n", 0},
    {"9025", "lost:T2_TP_Value.txt", "9FE5", "line 5\r\n", 0},
    {"0300", "", "03F0", nullptr, 17},
};

inline const QVector<Row> powerOnRows = {
    {"8700", "rootfs:1", "87F1", nullptr, 15},
    {"8700", "rootfs:2", "87F2", nullptr, 15},
    {"8700", "rootfs:3", "87F0", nullptr, 15},
    {"8700", "rootfs:silent", "87F0", "8700", 15},
    {"AB00", "model:KLV-999", "KLV-999\n", "KLV-100\n", 1, '1'},
    {"FF00", "version:A.9999", "A.9999.120\n", "A.0123.120\n", 3, '1'},
    {"0400", "", "04F0", nullptr, 16},
};

inline const QVector<Row> displayRows = {
    {"9502", "lcm:1", "95FF", nullptr, 8},
    {"9502", "lcm:16", "95F0", nullptr, 8},
    {"9502", "lcm:17", "95EF", nullptr, 8},
    {"9502", "lcm:20", "95EC", "9502", 8},
};

inline const QVector<Row> i2cDisplayRows = {
    {"9508", "script:lcd_circuit_test_pattern.sh=missing", "95FF", nullptr, 8},
    {"9508", "lcm:17", "95EF", nullptr, 8},
    {"9508", "lcm:20", "95EC", "9508", 8},
};

inline const QVector<Row> buzzerRows = {
    {"9201", "microphone:deaf", "92F1", nullptr, 9},
    {"9201", "microphone:unplugged", "92F1", nullptr, 9},
    {"9201", "microphone:line-end", "92F1", nullptr, 9}, // one byte too many,
    {"9202", "microphone:line-end", "9202", nullptr, 9, '1'}, // which does not matter here
    {"9201", "buzzer", "92F1", "9201", 9},
    {"9202", "microphone:unplugged", "92F3", nullptr, 9},
    {"9202", "buzzer", "92F2", "9202", 9},
};

inline const QVector<Series> allSeries = {
    {"ICT", "ICT", false, ictRows},
    {"T1", "T1", false, t1Rows},
    {"BI", "BI", false, biRows},
    {"T2", "T2", false, t2Rows},
    {"power-on", "ICT", true, powerOnRows},
    {"display", "ICT", false, displayRows},
    {"display over I2C", "ICT", false, i2cDisplayRows},
    {"buzzer", "ICT", false, buzzerRows},
};
