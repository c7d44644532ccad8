// Symbol export for the runtime's public API (the libraries build with
// hidden visibility by default).
#pragma once

#define ZEL_API __attribute__((visibility("default")))
