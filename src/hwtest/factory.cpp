#include "factory.h"

#include "state/itemrecord.h"
#include "state/linkstate.h"

#include <cstdio>

constexpr int LongIdLength = 18;
constexpr int UsbItemAtT1 = 13;
constexpr int StationItemAtT1 = 15;
constexpr int UsbItemAtBi = 4;

char factoryMarker(const QByteArray &id)
{
    if (id.size() <= 9)
        return 0;
    return id[id.size() == LongIdLength ? 9 : 8];
}

int factoryOfMarker(char marker)
{
    switch (marker) {
    case 'W':
        return FactoryW;
    case 'T':
        return FactoryT;
    default:
        return FactoryUnknown;
    }
}

void classifyFactory(const QByteArray &id)
{
    const char marker = factoryMarker(id);
    if (!marker)
        return;
    g_FactoryInfo = factoryOfMarker(marker);
    if (g_FactoryInfo == FactoryUnknown)
        printf("Unknow FactoryInfo, ch = %c\n", marker); // so spelled, deliberately
}

void grantItemsOfFactory()
{
    if (g_uiHMI_TEST_LEVEL == LevelT1 && g_FactoryInfo == FactoryW) {
        setAndRecordItem(StationItemAtT1, ItemPassed);
        setAndRecordItem(UsbItemAtT1, ItemPassed);
    } else if (g_uiHMI_TEST_LEVEL == LevelBI && g_FactoryInfo != FactoryW) {
        setAndRecordItem(UsbItemAtBi, ItemPassed);
    }
}
