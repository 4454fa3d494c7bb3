// What installation writes into the registry, and removal takes out. Windows alone.
//
//   HKCR\CLSID\{class}                  = the description
//   HKCR\CLSID\{class}\InprocServer32   = the module's path in lower case; ThreadingModel =
//   Apartment HKLM\SOFTWARE\ASIO\<description>      CLSID = {class}; Description = the description
//
// A failure to write is not reported: an installer looks at what is there.
#pragma once

enum RegistrationResult : int {
    registrationDone = 0,
    noModule = -101,  // no module of this server's file name is loaded
    noModulePath = -102,
    noClassText = -103,
    noClassAnsi = -104,
};

RegistrationResult registerServer();
RegistrationResult unregisterServer();
