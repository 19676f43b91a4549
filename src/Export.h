// Marks the classes and functions that libqorimg.so exports; everything else stays hidden.
#pragma once
#define QORIMG_API __attribute__((visibility("default")))
