#include "platform/Object.h"

CObject::~CObject() = default;
