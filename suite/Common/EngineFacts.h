// What both the scan library and the pattern library say of the engine.
#pragma once

#include <cstdint>

namespace vlt::scan
{

constexpr std::uint32_t EngineMajor = 8;
constexpr std::uint32_t EngineMinor = 550;
constexpr std::uint32_t EngineBuild = 1001;

// The extensions that are scanned unless the settings say otherwise. The first one is empty: names without
// an extension.
constexpr char DefaultExtensionList[] =
    ";BAT;BIN;CAB;CHM;CLA;CMD;COM;CPL;CSC;DLL;DOC;DOCM;DOCX;DOT;DRV;EML;EXE;HLP;HTA;HTM;HTML;INF;JAR;JS;JSE;LNK;"
    "MDB;MPP;MSG;MSI;MSO;OCX;PDF;PHP;PIF;PL;POT;PPS;PPT;PPTX;PRC;PS1;PY;RAR;REG;RTF;SCR;SH;SHS;SO;SWF;SYS;VBE;VBS;"
    "VSD;VXD;WBS;WML;WSF;WSH;XLA;XLS;XLSM;XLSX;XLT;XML;ZIP";

} // namespace vlt::scan
