#include "engine/test/EngineFixture.hpp"
