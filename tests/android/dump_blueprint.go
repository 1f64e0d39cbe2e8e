// Prints the modules of one Android.bp as JSON, read by the platform's own parser: an array of
// {"type": ..., "properties": {...}}. Ends with status 1 and the parser's messages when it refuses.
package main

import (
	"encoding/json"
	"fmt"
	"os"

	"github.com/google/blueprint/parser"
)

func plain(expression parser.Expression) interface{} {
	switch value := expression.Eval().(type) {
	case *parser.String:
		return value.Value
	case *parser.Bool:
		return value.Value
	case *parser.Int64:
		return value.Value
	case *parser.List:
		list := []interface{}{}
		for _, item := range value.Values {
			list = append(list, plain(item))
		}
		return list
	case *parser.Map:
		return properties(value.Properties)
	}
	return nil
}

func properties(list []*parser.Property) map[string]interface{} {
	result := map[string]interface{}{}
	for _, property := range list {
		result[property.Name] = plain(property.Value)
	}
	return result
}

func main() {
	input, err := os.Open(os.Args[1])
	if err != nil {
		fmt.Fprintln(os.Stderr, err)
		os.Exit(1)
	}
	file, errs := parser.ParseAndEval(os.Args[1], input, parser.NewScope(nil))
	for _, err := range errs {
		fmt.Fprintln(os.Stderr, err)
	}
	if len(errs) > 0 {
		os.Exit(1)
	}
	modules := []map[string]interface{}{}
	for _, definition := range file.Defs {
		if module, ok := definition.(*parser.Module); ok {
			modules = append(modules, map[string]interface{}{
				"type": module.Type, "properties": properties(module.Properties)})
		}
	}
	json.NewEncoder(os.Stdout).Encode(modules)
}
