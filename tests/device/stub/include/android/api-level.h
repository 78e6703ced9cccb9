#pragma once

// Stands for Android's header of this name, which ICU's headers want to be there; the compiler knows the level.
