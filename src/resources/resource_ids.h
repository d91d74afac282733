#pragma once

#define IDD_PASSWORD 101
#define IDC_USER_PIN 1001
