#pragma once

#include <json/value.h>

#include <string>
#include <utility>

namespace Json {
namespace Rpc {

// One registered JSON-RPC method: fills `response` for `request`. A null
// response means no reply is written.
class CallbackMethod {
public:
    virtual ~CallbackMethod() = default;
    virtual bool Call(const Json::Value& request, Json::Value& response) = 0;
    virtual const std::string& GetName() const = 0;
    virtual const Json::Value& GetDescription() const = 0;
};

// A method bound to a member function of an object that outlives it.
template <class T>
class RpcMethod : public CallbackMethod {
public:
    using Method = bool (T::*)(const Json::Value&, Json::Value&);

    RpcMethod(T& object, Method method, std::string name,
              Json::Value description = Json::Value::nullSingleton())
        : m_object(object), m_method(method), m_name(std::move(name)),
          m_description(std::move(description))
    {
    }

    bool Call(const Json::Value& request, Json::Value& response) override
    {
        return (m_object.*m_method)(request, response);
    }
    const std::string& GetName() const override { return m_name; }
    const Json::Value& GetDescription() const override { return m_description; }

private:
    T& m_object;
    Method m_method;
    std::string m_name;
    Json::Value m_description;
};

}  // namespace Rpc
}  // namespace Json
