#pragma once
// CRfcServerFunc: the base of every function an RFC server offers. A server
// derives one class per function, adds its parameters in the constructor,
// implements Process and adds an instance to its CRfcServerApp. For every
// call the application points the function at the call's connection and runs
// ReceiveData, Process and ReturnCall, in that order. Functions served by the
// thread pool must also implement clone (a copy made with the copy
// constructor; the application deletes it after the call).

#include "rfc/function/rfc_function.h"

class CRfcServerApp;

class CRfcServerFunc : public CRfcFunction {
 public:
  // No connection; the name is kept in upper case.
  explicit CRfcServerFunc(const char* name);
  ~CRfcServerFunc() override;

  // This version writes its long explanation to the trace and throws "You
  // have to implement the clone function CRfcServerFunc::clone() in the
  // derived class of CRfcServerFunc."
  virtual CRfcServerFunc* clone();
  // The handling of one call; the application ignores the result.
  virtual int Process() = 0;
  // Documentation handed to the library with the name; none here.
  virtual const char* GetDocu();
  // Takes the caller's imports (all of them) and tables. 1 without a
  // connection, 0 after a receive; the library's last error is thrown as
  // RFC_ERROR_INFO.
  virtual int ReceiveData();
  // Sends the exports and the tables back; results as for ReceiveData.
  virtual int ReturnCall();

  CRfcServerApp* GetServerApp() const { return server_app_; }
  void SetServerApp(CRfcServerApp* app) { server_app_ = app; }

 protected:
  CRfcServerFunc(const CRfcServerFunc& other);

 private:
  CRfcServerApp* server_app_ = nullptr;
};
