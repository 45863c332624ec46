#pragma once

#include <string>

// The example at the top of markup_document.h, and the functions that it takes for given.

void RunHeaderExample();
void Show(const std::string& text);
void Complain(const std::string& text);
