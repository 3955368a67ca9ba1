// What a host does with pictures in memory, each as one call and as the program `ko` does it: enhance, judge, repair red eyes.
#ifndef KOHOST_HPP
#define KOHOST_HPP

#include "ko.hpp"
#include "kohost/correction.h"
#include "kohost/curves.h"
#include "kohost/enhancement.h"
#include "kohost/scores.h"

#endif
