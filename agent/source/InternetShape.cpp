// Figures of both families, measured from the public full table of a tier-1 router of 2024 with
// 901,899 IPv4 and 160,147 IPv6 routes.

#include "agent/source/InternetShape.h"

#include "agent/source/InternetLevels.h"

namespace Quarle::Agent {

namespace {

constexpr GroupRange kIpv4Groups[] = {{1, 9}, {11, 47}, {49, 126}, {128, 223}};

constexpr CurvePoint kIpv4BlockSizes[] = {
    {0, 1},      {30, 1},     {60, 2},     {100, 7},    {150, 15},   {200, 23},
    {300, 54},   {400, 100},  {500, 161},  {600, 237},  {700, 347},  {800, 490},
    {850, 582},  {900, 728},  {930, 850},  {950, 984},  {970, 1212}, {980, 1501},
    {990, 2062}, {995, 2267}, {998, 2835}, {1000, 3412}};

constexpr LengthCount kIpv4Short[] = {{8, 16}, {9, 13}, {10, 38}, {11, 103}};

constexpr LengthCount kIpv4Long[] = {{25, 20}, {26, 3}, {27, 11}, {28, 18},
                                     {29, 17}, {30, 3}, {31, 3},  {32, 886}};

constexpr CurvePoint kIpv4Clusters[] = {{0, 1},    {727, 1},  {728, 2},   {860, 2},  {861, 3},
                                        {904, 3},  {905, 4},  {935, 4},   {936, 5},  {955, 5},
                                        {962, 6},  {973, 7},  {980, 8},   {984, 10}, {991, 14},
                                        {995, 20}, {997, 74}, {1000, 105}};

constexpr GroupRange kIpv6Groups[] = {{0x2001, 0x2003}, {0x2049, 0x2049}, {0x2400, 0x240f},
                                      {0x2600, 0x2605}, {0x2607, 0x2610}, {0x2620, 0x2620},
                                      {0x2800, 0x2806}, {0x2a00, 0x2a13}, {0x2c0e, 0x2c0f}};

constexpr CurvePoint kIpv6BlockSizes[] = {
    {0, 1},      {30, 1},     {60, 3},     {100, 11},    {150, 25},   {200, 32},
    {300, 43},   {400, 53},   {500, 68},   {600, 88},    {700, 116},  {800, 187},
    {850, 257},  {900, 360},  {930, 627},  {950, 1182},  {970, 1921}, {980, 2543},
    {990, 3380}, {995, 5158}, {998, 9916}, {1000, 11508}};

constexpr LengthCount kIpv6Short[] = {{16, 1}, {19, 1}};

constexpr LengthCount kIpv6Long[] = {{49, 11}, {50, 3},  {52, 1},   {55, 1},   {56, 24},
                                     {58, 20}, {60, 2},  {64, 184}, {112, 2},  {122, 1},
                                     {124, 4}, {125, 9}, {126, 19}, {127, 42}, {128, 6}};

constexpr CurvePoint kIpv6Clusters[] = {
    {0, 1},   {525, 1}, {526, 2},  {694, 2},  {695, 3},  {779, 3},  {800, 4},  {830, 6},
    {864, 7}, {900, 9}, {915, 13}, {932, 14}, {949, 21}, {966, 22}, {983, 67}, {1000, 81}};

constexpr InternetShape kIpv4 = {.groupLength = 8,
                                 .blockLength = 12,
                                 .lastLength = 24,
                                 .routes = 901899,
                                 .blocks = 3049,
                                 .groups = 220,
                                 .knownGroups = kIpv4Groups,
                                 .spareGroups = {},
                                 .blockSizes = kIpv4BlockSizes,
                                 .shortRoutes = kIpv4Short,
                                 .longRoutes = kIpv4Long,
                                 .clusterSizes = kIpv4Clusters,
                                 .clusters = 469,
                                 .firstHostLength = 20,
                                 .lastHostLength = 24,
                                 .levels = kIpv4Levels};

constexpr GroupRange kIpv6SpareGroups[] = {{0x2004, 0x2048}, {0x204a, 0x23ff}, {0x2410, 0x25ff},
                                           {0x2621, 0x27ff}, {0x2807, 0x29ff}, {0x2a14, 0x2bff},
                                           {0x2c10, 0x3fff}};

constexpr InternetShape kIpv6 = {.groupLength = 16,
                                 .blockLength = 20,
                                 .lastLength = 48,
                                 .routes = 160147,
                                 .blocks = 616,
                                 .groups = 60,
                                 .knownGroups = kIpv6Groups,
                                 .spareGroups = kIpv6SpareGroups,
                                 .blockSizes = kIpv6BlockSizes,
                                 .shortRoutes = kIpv6Short,
                                 .longRoutes = kIpv6Long,
                                 .clusterSizes = kIpv6Clusters,
                                 .clusters = 179,
                                 .firstHostLength = 29,
                                 .lastHostLength = 32,
                                 .levels = kIpv6Levels};

}  // namespace

const InternetShape& internetShape(Family family) { return family == Family::ipv4 ? kIpv4 : kIpv6; }

}  // namespace Quarle::Agent
