// The job's trace attribute definitions.
#include "JobManager.h"

namespace {

constexpr int notDefined = -1;

struct SegyWord
{
    const char* key;
    const char* description;
};

// The kernel knows nothing of files; a test compares the table with that of the readers.
// clang-format off
constexpr SegyWord segyWords[] = {
    {"tracl",   "trace number in the line"},
    {"tracr",   "trace number in the reel"},
    {"fldr",    "field record number"},
    {"tracf",   "trace number in the field record"},
    {"ep",      "energy source point number"},
    {"cdp",     "CDP ensemble number"},
    {"cdpt",    "trace number in the CDP ensemble"},
    {"trid",    "trace identification code (1 seismic, 2 dead)"},
    {"nvs",     "vertically summed traces"},
    {"nhs",     "horizontally stacked traces"},
    {"duse",    "data use (1 production, 2 test)"},
    {"offset",  "distance from source to receiver group"},
    {"gelev",   "receiver group elevation"},
    {"selev",   "surface elevation at the source"},
    {"sdepth",  "source depth below the surface"},
    {"gdel",    "datum elevation at the receiver group"},
    {"sdel",    "datum elevation at the source"},
    {"swdep",   "water depth at the source"},
    {"gwdep",   "water depth at the receiver group"},
    {"scalel",  "scalar of elevations and depths"},
    {"scalco",  "scalar of coordinates"},
    {"sx",      "source coordinate, x"},
    {"sy",      "source coordinate, y"},
    {"gx",      "receiver group coordinate, x"},
    {"gy",      "receiver group coordinate, y"},
    {"counit",  "coordinate units (1 length, 2 seconds of arc)"},
    {"wevel",   "weathering velocity"},
    {"swevel",  "subweathering velocity"},
    {"sut",     "uphole time at the source, ms"},
    {"gut",     "uphole time at the receiver group, ms"},
    {"sstat",   "source static correction, ms"},
    {"gstat",   "receiver group static correction, ms"},
    {"tstat",   "total static applied, ms"},
    {"laga",    "lag time A, ms"},
    {"lagb",    "lag time B, ms"},
    {"delrt",   "delay recording time, ms"},
    {"muts",    "mute start time, ms"},
    {"mute",    "mute end time, ms"},
    {"ns",      "samples in this trace"},
    {"dt",      "sample interval, microseconds"},
    {"gain",    "gain type of field instruments"},
    {"igc",     "instrument gain constant, dB"},
    {"igi",     "instrument initial gain, dB"},
    {"corr",    "correlated (1 no, 2 yes)"},
    {"sfs",     "sweep frequency at the start, Hz"},
    {"sfe",     "sweep frequency at the end, Hz"},
    {"slen",    "sweep length, ms"},
    {"styp",    "sweep type"},
    {"stas",    "sweep taper at the start, ms"},
    {"stae",    "sweep taper at the end, ms"},
    {"tatyp",   "taper type"},
    {"afilf",   "alias filter frequency, Hz"},
    {"afils",   "alias filter slope, dB/octave"},
    {"nofilf",  "notch filter frequency, Hz"},
    {"nofils",  "notch filter slope, dB/octave"},
    {"lcf",     "low-cut frequency, Hz"},
    {"hcf",     "high-cut frequency, Hz"},
    {"lcs",     "low-cut slope, dB/octave"},
    {"hcs",     "high-cut slope, dB/octave"},
    {"year",    "year recorded"},
    {"day",     "day of the year"},
    {"hour",    "hour of the day"},
    {"minute",  "minute of the hour"},
    {"sec",     "second of the minute"},
    {"timbas",  "time basis (1 local, 2 GMT, 3 other, 4 UTC)"},
    {"trwf",    "trace weighting factor"},
    {"grnors",  "group number of roll switch position one"},
    {"grnofr",  "group number of the first trace of the record"},
    {"grnlof",  "group number of the last trace of the record"},
    {"gaps",    "gap size, groups dropped"},
    {"otrav",   "over travel of taper"},
    {"cdpx",    "CDP coordinate, x"},
    {"cdpy",    "CDP coordinate, y"},
    {"iline",   "in-line number"},
    {"xline",   "cross-line number"},
    {"sp",      "shotpoint number"},
    {"scalsp",  "scalar of the shotpoint number"},
    {"tunit",   "unit of the samples"},
    {"tdcm",    "transduction constant, mantissa"},
    {"tdce",    "transduction constant, exponent of ten"},
    {"tdunit",  "transduction unit"},
    {"triden",  "device or trace identifier"},
    {"sctrh",   "scalar of times in bytes 95 to 114"},
    {"stype",   "source type and orientation"},
    {"sedm",    "source energy direction, mantissa"},
    {"sede",    "source energy direction, exponent"},
    {"smm",     "source measurement, mantissa"},
    {"sme",     "source measurement, exponent of ten"},
    {"smunit",  "source measurement unit"},
    {"unas1",   "unassigned, bytes 233 to 236"},
    {"unas2",   "unassigned, bytes 237 to 240"},
};
// clang-format on

void assign(int* output, int value)
{
    if (output != nullptr)
        *output = value;
}

int fieldOf(const trAttDefStr* definition, int trAttDefStr::*field)
{
    return definition != nullptr ? definition->*field : notDefined;
}

} // namespace

const trAttDefStr* JobManager::findDefinition(const std::string& name) const
{
    const auto definition = trAttDefsList.find(name);
    return definition != trAttDefsList.end() ? &definition->second : nullptr;
}

void JobManager::addTraceAttributeDefinition(const std::string& name, int type, int dim,
                                             const std::string& descr, int cstSlot, int bitA,
                                             int bitZ, int cstType, int mapCoef)
{
    trAttDefsList[name] = trAttDefStr{type, dim, descr, cstSlot, cstType, bitA, bitZ, mapCoef};
}

void JobManager::defineSegySchema()
{
    for (const SegyWord& word : segyWords)
        addTraceAttributeDefinition(word.key, int32AttType, 1, word.description, 0, 0, 0, 0, 0);
}

int JobManager::getTraceAttributeType(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::type);
}

int JobManager::getTraceAttributeDimension(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::dim);
}

int JobManager::getTraceAttributeCstSlot(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::cstSlot);
}

int JobManager::getTraceAttributeBitA(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::bitA);
}

int JobManager::getTraceAttributeBitZ(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::bitZ);
}

int JobManager::getTraceAttributeCstType(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::cstType);
}

int JobManager::getTraceAttributeMapCoef(const std::string& name) const
{
    return fieldOf(findDefinition(name), &trAttDefStr::mapCoef);
}

std::string JobManager::getTraceAttributeDescription(const std::string& name) const
{
    const trAttDefStr* definition = findDefinition(name);
    return definition != nullptr ? definition->descr : std::string();
}

int JobManager::getTraceAttributeDef(const std::string& name, int* type, int* dim, int* cstSlot,
                                     int* bitA, int* bitZ, int* cstType, int* mapCoef) const
{
    const trAttDefStr* definition = findDefinition(name);
    assign(type, fieldOf(definition, &trAttDefStr::type));
    assign(dim, fieldOf(definition, &trAttDefStr::dim));
    assign(cstSlot, fieldOf(definition, &trAttDefStr::cstSlot));
    assign(bitA, fieldOf(definition, &trAttDefStr::bitA));
    assign(bitZ, fieldOf(definition, &trAttDefStr::bitZ));
    assign(cstType, fieldOf(definition, &trAttDefStr::cstType));
    assign(mapCoef, fieldOf(definition, &trAttDefStr::mapCoef));
    return definition != nullptr ? 1 : notDefined;
}
