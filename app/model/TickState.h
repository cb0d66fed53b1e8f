#pragma once

// The state of a folder's tick box: every photo taken, none, or some.
enum class TickState { on, off, mixed };
