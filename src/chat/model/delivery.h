#pragma once

// How one delivery attempt of an outbox turn ended.
enum class Delivery {
    Settled, // the server has the turn
    Offline, // no network or no answer: keep the turn and try again later
    Stopped, // withdrawn, or it cannot be delivered: stop trying
};
