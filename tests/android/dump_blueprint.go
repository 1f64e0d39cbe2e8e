// Prints the properties of each module of the Android.bp on its input as JSON, read by the platform's own parser.
// Ends with the parser's messages and a status other than 0 when it refuses.
package main

import (
	"encoding/json"
	"os"

	"github.com/google/blueprint/parser"
)

func plain(expression parser.Expression) interface{} {
	switch value := expression.Eval().(type) {
	case *parser.String:
		return value.Value
	case *parser.Bool:
		return value.Value
	case *parser.List:
		list := []interface{}{}
		for _, item := range value.Values {
			list = append(list, plain(item))
		}
		return list
	}
	panic("a value of a kind that this project does not use")
}

func main() {
	file, errs := parser.ParseAndEval("Android.bp", os.Stdin, parser.NewScope(nil))
	if len(errs) > 0 {
		panic(errs)
	}
	modules := []map[string]interface{}{}
	for _, definition := range file.Defs {
		if module, ok := definition.(*parser.Module); ok {
			properties := map[string]interface{}{}
			for _, property := range module.Properties {
				properties[property.Name] = plain(property.Value)
			}
			modules = append(modules, properties)
		}
	}
	json.NewEncoder(os.Stdout).Encode(modules)
}
