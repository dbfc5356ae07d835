// A misspelt Apple method does not compile against the shims.
// expect: declares the selector 'registerAndReturnErrors:'
#import <ServiceManagement/ServiceManagement.h>
void enrol() { [SMAppService.mainAppService registerAndReturnErrors:nil]; }
