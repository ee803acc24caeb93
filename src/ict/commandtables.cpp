#include "commandtables.h"

#include "levelflow.h"
#include "mainwindow.h"

#include <cstring>

using W = MainWindow;

// A friend of the window: many handlers are its private slots.
struct CommandTables { // Any level but BI, before the level's own tables.
    static constexpr Command common[] = {
        {"FF00", &W::sendIdentityText, IdentityVersion},
        {"AA00", &W::sendIdentityText, IdentityCrc},
        {"AB00", &W::sendIdentityText, IdentityModel},
        {"FF01", &W::sendIdentityText, IdentityToolVersion},
        {"8500", &W::testDdr},
        {"9201", &W::testBuzzerSound},
        {"9202", &W::testBuzzerSilent},
        {"0702", &W::readBackSemiMachineId},
        {"8800", &W::measureBattery, BatteryJudgedAtBi},
        {"8801", &W::measureBattery, BatteryReported},
        {"8000", &W::confirmPresence},
        {"8107", &W::testCom2},
        {"8102", &W::testCom1Rs485},
        {"810A", &W::testAllPorts},
        {"A200", &W::testUsbStorage},
    };

    static constexpr Command ict[] = {
        {"0400", &W::levelEndCheck, IctItemCount - 1},
        {"9002", &W::HMI_ICT_GET_TPS_XY},
        {"8C00", &W::testRtc},
        {"8700", &W::reportRootfsCheck},
        {"9502", &W::testLcmCircuit, 0},
        {"9508", &W::testLcmCircuit, 1},
        {"9503", &W::testLcmCircuit, 2},
        {"9509", &W::testLcmCircuit, 3},
    };

    static constexpr Command t1[] = {
        {"0100", &W::levelEndCheck, T1ItemCount - 1},
        {"0101", &W::levelEndCheck, ExtendedT1Check},
        {"8A00", &W::assignStation},
        {"9000", &W::startCalibration, 1},
        {"9004", &W::startCalibration, 0},
        {"9011", &W::sendT1TouchValue, 0},
        {"9012", &W::sendT1TouchValue, 1},
        {"9013", &W::sendT1TouchValue, 2},
        {"9014", &W::sendT1TouchValue, 3},
        {"9015", &W::sendT1TouchValue, 4},
    };

    static constexpr Command t2[] = {
        {"0300", &W::levelEndCheck, T2ItemCount - 1},
        {"9001", &W::startCalibrationCheck},
    };

    // Every level, BI included.
    static constexpr Command exports[] = {
        {"CC00", &W::exportLog, ExportPartitionToUsb},
        {"CC01", &W::exportLog, ExportPartitionToSd},
        {"CC10", &W::exportLog, ExportFolderToUsb},
        {"CC11", &W::exportLog, ExportFolderToSd},
        {"CE00", &W::switchUsbMode, 1},
        {"CE01", &W::switchUsbMode, 0},
    };

    // T1 and T2, after the level's own table.
    static constexpr Command t1t2[] = {
        {"9302", &W::HMI_ICT_TEST_LCM_BL, 100},
        {"9301", &W::HMI_ICT_TEST_LCM_BL, 0},
        {"9507", &W::LCD_SHOW_RGB},
        {"9504", &W::LCD_SHOW_RED},
        {"9506", &W::LCD_SHOW_BLUE},
        {"9505", &W::LCD_SHOW_GREEN},
        {"0701", &W::readBackMachineId},
        {"9003", &W::testTouchPressure},
        {"9030", &W::showTouchPoints},
        {"9021", &W::sendLevelTouchValue, 0},
        {"9022", &W::sendLevelTouchValue, 1},
        {"9023", &W::sendLevelTouchValue, 2},
        {"9024", &W::sendLevelTouchValue, 3},
        {"9025", &W::sendLevelTouchValue, 4},
    };

    // While "9000" or "9004" checks its fresh calibration: a repeated request starts over.
    static constexpr Command calibration[] = {
        {"9000", &W::startCalibration, 1},
        {"9004", &W::startCalibration, 0},
    };

    static constexpr Command bi[] = {
        {"0200", &W::levelEndCheck, BiItemCount - 1},
        {"9504", &W::LCD_SHOW_RED},
        {"9506", &W::LCD_SHOW_BLUE},
        {"9505", &W::LCD_SHOW_GREEN},
        {"9507", &W::LCD_SHOW_RGB},
        {"8500", &W::testDdr},
        {"8800", &W::measureBattery, BatteryJudgedAtBi},
        {"8801", &W::measureBattery, BatteryReported},
        {"9003", &W::testTouchPressure},
        {"A200", &W::testUsbStorage},
    };

    // Looked at first. Identity requests have a sub-code; other ones are ignored. The forced change
    // reads its line itself, after it has noted that one came.
    static constexpr LongRequest longRequests[] = {
        {"KLV-", readNothingMore, AnyLevel, &W::receiveForcedChange},
        {":008D", readClockRequest, AllButBi, &W::setClock},
        {":008E", readClockRequest, AllButBi, &W::compareClock},
        {":000601", readMachineId, AllButBi, &W::storeMachineId},
        {":000602", readSemiMachineId, AllButBi, &W::storeSemiMachineId},
        {":000603", readSemiMachineId, AllButBi, &W::verifySemiMachineId},
        {":0006", readNothingMore, AllButBi, nullptr},
        {":9510", readNothingMore, AllButBi, &W::LCD_SHOW_SPECIFIC_COLOR},
    };
};

template <int N> static constexpr CommandTable table(const Command (&commands)[N])
{
    return {commands, N};
}

std::vector<CommandTable> commandTables(quint32 level)
{
    using T = CommandTables;
    switch (level) {
    case LevelICT:
        return {table(T::common), table(T::exports), table(T::ict)};
    case LevelT1:
        return {table(T::common), table(T::exports), table(T::t1), table(T::t1t2)};
    case LevelBI:
        return {table(T::bi), table(T::exports)};
    case LevelT2:
        return {table(T::common), table(T::exports), table(T::t2), table(T::t1t2)};
    case LevelT1Check:
        return {table(T::common), table(T::exports), table(T::calibration)};
    default:
        return {table(T::common), table(T::exports)};
    }
}

void dispatchCode(MainWindow &window, quint32 level, const char *code)
{
    for (const CommandTable &commands : commandTables(level)) {
        for (const Command &command : commands) {
            if (strcmp(command.code, code) == 0)
                command.run(window);
        }
    }
}

const LongRequest *findLongRequest(quint32 level, const char *text)
{
    for (const LongRequest &request : CommandTables::longRequests) {
        const bool fits = strncmp(text, request.start, strlen(request.start)) == 0;
        if (fits && (request.levels == AnyLevel || level != LevelBI))
            return &request;
    }
    return nullptr;
}
