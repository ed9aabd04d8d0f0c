// The list of what the loaded pattern detects, for people and support: virus.lst in the program folder.
//
// Text in the system code page, one line for each name, ended by CR LF: the name, then the library's three
// numbers (AsVirusInfo) as unsigned decimals, all between commas.
#pragma once

// Replaces the file. Names are cut to 200 characters. False when the library does not list its names,
// or the file cannot be written; it then holds what could be. For the thread that owns the library.
bool WriteVirusList();
