#include "ui/View.hpp"
