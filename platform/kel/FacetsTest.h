#pragma once

#include <Facets/Facets.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kel/ThrownTest.h>
