#pragma once
// FakeModelTranscriber lives beside the engine that makes it.
#include "fakes/FakeModelEngine.h"
