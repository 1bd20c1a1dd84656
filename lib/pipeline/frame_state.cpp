// The process-wide frame state through which the stages of one
// TRV_Enhancement call talk to each other.
#include "trv/stages.h"

extern "C" {
int32_t gINFormat = 0;
int32_t gOUTFormat = 0;
int32_t gW = 0;
int32_t gH = 0;
int32_t gPicNum = 0;
uint8_t* gImgInArr[6] = {};
uint8_t* gImgInSArr[6] = {};
float gErrorRatio[6] = {};
float* gSobel = nullptr;
float* gSobelInner = nullptr;
int32_t gMeanLux[6] = {};
int32_t gIsNormalPicLux[6] = {};
int32_t gIsNormalLuminance = 1;
int32_t gMeanY = 0;
}
