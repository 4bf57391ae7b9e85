// The association of file extensions with the filter: the keys through which
// a player finds this filter as the source of a .ts file, with what another
// filter had registered kept aside and given back. Failures are not
// reported: a key that cannot be had leaves its step out.
#pragma once

#include <string>
#include <vector>

#include "platform/com/objbase.h"

// The module whose path the media player's description points into, kept by
// DllMain; null (the program itself) until then.
void SetBrindletModule(HINSTANCE module);
HINSTANCE BrindletModule();

// Makes (`add`) or removes the entries of one extension, written with its
// point (".ts"). With a mask list, the media player's file mask and
// description are written too.
void RegisterExtension(const char* extension, const char* maskList, bool add);

// The words of an extension list that count: split at semicolons and blanks,
// at least three characters, starting with a point. The list is cut to 255
// characters first.
std::vector<std::string> ExtensionWords(const char* list);

// RegisterExtension for each word that counts, then once more for the last
// one with the mask list "*.a;*.b;" of them all.
void ApplyExtensionList(const char* list, bool add);
