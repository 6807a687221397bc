#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <type_traits>
#include <vector>

/// A field of a class: what sets it, and what checks whether it is as set or as at first.
template <class Object> struct Field {
    std::function<void(Object&)> set;
    std::function<void(Object const&, bool isSet)> check;
    char const* name;
};

/// A field that is `first` in a fresh object, and `later` once that is set.
template <class Object, class Getter, class Setter,
    class Value = std::remove_cvref_t<std::invoke_result_t<Getter, Object const&>>>
Field<Object> field(char const* name, Getter getter, Setter setter,
    std::type_identity_t<Value> first, std::type_identity_t<Value> later)
{
    EXPECT_NE(first, later) << name;
    return {
        [=](Object& object) { std::invoke(setter, object, later); },
        [=](Object const& object, bool isSet) {
            EXPECT_EQ(std::invoke(getter, object), isSet ? later : first) << name;
        },
        name,
    };
}

/// Each field of a fresh object is as at first, and each setter changes its own field alone.
template <class Object, class Make = Object (*)()>
void expectFields(
    std::vector<Field<Object>> const& fields, Make make = [] { return Object(); })
{
    auto const expectOnlySet = [&](Field<Object> const* set, Object const& object) {
        for (Field<Object> const& field : fields)
            field.check(object, &field == set);
    };
    expectOnlySet(nullptr, make());
    for (Field<Object> const& field : fields) {
        SCOPED_TRACE(field.name);
        Object object = make();
        field.set(object);
        expectOnlySet(&field, object);
    }
}
