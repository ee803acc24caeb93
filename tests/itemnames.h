#pragma once

#include <QStringList>

// The items of each level, as screens and flag files number and name them. A copy of its own,
// worked out from the documents: what the agent says is compared with it.
inline const QStringList ictItems = {"1. Read HMI Model",
                                     "2. Read Image CRC",
                                     "3. Read Version",
                                     "4. COM1 RS232 Test",
                                     "5. COM1 RS485 Test",
                                     "6. COM2 RS422 Test",
                                     "7. DDR Test",
                                     "8. LCD Circuit Test",
                                     "9. Buzzer Circuit Test",
                                     "10.Write SemiMachineID",
                                     "11.TP Circuit Test",
                                     "12.RTC Test",
                                     "13.USB H/D Test",
                                     "14.Battery Test",
                                     "15.Check NAND",
                                     "16.ICT Test END Check"};
inline const QStringList t1Items = {"1. Read HMI Model",     "2. Read Image CRC",
                                    "3. Read Version",       "4. COM1 RS232 Test",
                                    "5. COM1 RS485 Test",    "6. COM2 RS422 Test",
                                    "7. DDR Test",           "8. LCD Color Test",
                                    "9. LCD Backlight Test", "10.Buzzer Circuit Test",
                                    "11.Write Machine ID",   "12.TP Calibrate Test",
                                    "13.RTC Calibrate Test", "14.USB H/D Test",
                                    "15.Battery Test",       "16.Set Station Num",
                                    "17.Read Machine ID",    "18.Read TP Pressure",
                                    "19.T1 Test END Check"};
inline const QStringList biItems = {"1. LCD Color Test", "2. DDR Test",
                                    "3. Battery Test",   "4. Read TP Pressure",
                                    "5. USB H/D Test",   "6. BI Test END Check"};
inline const QStringList t2Items = {
    "1. Read HMI Model",     "2. Read Image CRC",      "3. Read Version",    "4. COM1 RS232 Test",
    "5. COM1 RS485 Test",    "6. COM2 RS422 Test",     "7. DDR Test",        "8. LCD Color Test",
    "9. LCD Backlight Test", "10.Buzzer Circuit Test", "11.TP Check Test",   "12.RTC Check Test",
    "13.USB H/D Test",       "14.Battery Test",        "15.Read Machine ID", "16.Read TP Pressure",
    "17.T2 Test END Check"};
